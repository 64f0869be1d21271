// Documents as heap buffers, and documents in temporary files.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/interposed.h"
#include "support/left_behind.h"
#include "support/mounts.h"
#include "support/sandbox.h"
#include "support/standard_descriptors.h"
#include "torvane.h"
#include "xml/buffers.h"
#include "xml/documents.h"

INTERPOSE(ftell, 1);

using buffers::files_of;
using buffers::small_document;
using documents::Buffer;
using documents::Document;
using documents::document;
using documents::element;
using sandbox::Captured;
using sandbox::fail_each_allocation;
using sandbox::NoDescriptors;
using sandbox::open_descriptors;
using sandbox::OwnFiles;
using sandbox::read_file;

namespace {

Document small() {
  Document doc = document(xmlNewNode("wancfg"));
  xml_node *ifname = xmlAddChild(doc->root, element("ifname", "abcd"));
  xmlAddAttr(ifname, "id", "atm0");
  xmlAddAttr(ifname, "class", "ioio");
  xmlAddChild(xmlAddChild(doc->root, xmlNewNode("ptAddr")), element("ipaddr", "aabb"));
  return doc;
}

// Calls `put` with every name that the file may have in the next minute.
template <typename Put>
void at_each_name(Put put) {
  const time_t now = time(nullptr);
  for (time_t second = now; second < now + 60; second++)
    put("/var/xml_" + std::to_string(second));
}

long no_position(FILE *) {
  return interposed::fail(EOVERFLOW);
}

class XmlBuffer : public buffers::Test {};
class XmlDocFile : public buffers::Test {};

} // namespace

TEST_F(XmlBuffer, HoldsThePrintedDocument) {
  const OwnFiles var("/var");
  const Document doc = small();
  Captured standard_output(1);
  const Buffer buffer(xmlPrepareBuf(doc.get()));
  ASSERT_NE(nullptr, buffer);
  EXPECT_STREQ(small_document, buffer.get());
  EXPECT_EQ("cnt = 0\ncnt = 0\n", standard_output.text());
  EXPECT_TRUE(files_of("/var").empty()) << "its file is removed";
}

TEST_F(XmlBuffer, MayBeTakenTwiceInOneSecond) {
  const OwnFiles var("/var");
  const Document doc = small();
  Captured standard_output(1);
  const Buffer one(xmlPrepareBuf(doc.get())), other(xmlPrepareBuf(doc.get()));
  ASSERT_NE(nullptr, one);
  ASSERT_NE(nullptr, other);
  EXPECT_STREQ(one.get(), other.get());
}

TEST_F(XmlBuffer, OfADocumentWithoutARootIsTheDeclaration) {
  const OwnFiles var("/var");
  const Buffer buffer(xmlPrepareBuf(document(nullptr).get()));
  EXPECT_STREQ(documents::declaration, buffer.get());
}

TEST_F(XmlBuffer, HoldsLargeDocumentsWhole) {
  const OwnFiles var("/var");
  const std::string text(3 * 1000 * 1000, 'x');
  Captured standard_output(1);
  const Buffer buffer(xmlPrepareBuf(document(element("a", text.c_str())).get()));
  ASSERT_NE(nullptr, buffer);
  EXPECT_EQ(documents::declaration + ("<a><![CDATA[]]><![CDATA[" + text) + "]]></a>\n", buffer.get());
}

TEST_F(XmlBuffer, LeavesTheEscapedTextInTheTree) {
  const OwnFiles var("/var");
  const Document doc = document(element("a", "]]>"));
  Captured standard_output(1);
  const Buffer buffer(xmlPrepareBuf(doc.get()));
  EXPECT_STREQ("]]]]><![CDATA[>", doc->root->text->text);
  EXPECT_STREQ("<?xml version=\"1.0\"?>\n<a><![CDATA[]]><![CDATA[]]]]><![CDATA[>]]></a>\n", buffer.get());
}

TEST_F(XmlBuffer, OverwritesWhatHasItsFilesName) {
  const OwnFiles var("/var");
  at_each_name([](const std::string &path) { sandbox::write_file(path, std::string(100000, '?')); });
  Captured standard_output(1);
  const Buffer buffer(xmlPrepareBuf(small().get()));
  ASSERT_NE(nullptr, buffer);
  EXPECT_STREQ(small_document, buffer.get());
  EXPECT_EQ(59u, files_of("/var").size());
}

TEST_F(XmlBuffer, ReplacesWhateverHasItsFilesName) {
  for (const auto &thing : sandbox::left_behind) {
    SCOPED_TRACE(thing.what);
    const OwnFiles var("/var");
    sandbox::make_kept("/var/xml");
    at_each_name(thing.put);
    at_each_name([&](const std::string &path) { thing.put(path + ":new"); });
    const size_t files = files_of("/var").size();
    Captured standard_output(1);
    const Buffer buffer(xmlPrepareBuf(small().get()));
    EXPECT_STREQ(small_document, buffer.get());
    EXPECT_TRUE(sandbox::is_kept("/var/xml"));
    EXPECT_EQ(files - 2, files_of("/var").size());
  }
}

// Looks at the file when there is no memory for the buffer, because it stays then. Returns 0 if it is as it must be.
int look_at_the_file() {
  const Document doc = small();
  umask(026);
  for (unsigned n = 1; files_of("/var").empty(); n++) {
    sandbox::fail_allocation(n);
    xmlFreeBuf(xmlPrepareBuf(doc.get()));
    if (!sandbox::allocation_failed())
      return 1;
  }
  sandbox::fail_allocation(0);
  const std::string path = files_of("/var").at(0);
  const std::vector<int> descriptors = sandbox::descriptors_of(path);
  if (descriptors.size() != 1 || descriptors[0] < 3 || fcntl(descriptors[0], F_GETFD) != FD_CLOEXEC)
    return 2;
  const bool as_wanted = sandbox::is_own_file(path, 0640) && read_file(path) == small_document;
  unlink(path.c_str());
  return as_wanted ? 0 : 3;
}

TEST_F(XmlBuffer, FileIsTheCallersClosedOnExecAndAboveStandardError) {
  const OwnFiles var("/var");
  EXPECT_EQ(0, sandbox::without_standard_descriptors(look_at_the_file));
  EXPECT_EQ(0, sandbox::in_child([] {
              const Captured standard_output(1);
              return look_at_the_file();
            }));
}

TEST_F(XmlBuffer, HoldsNoneOfWhatIsPrintedToAClosedStandardOutput) {
  const OwnFiles var("/var");
  const Document doc = small();
  EXPECT_EQ(0, sandbox::without_standard_descriptors([&] {
              const Buffer buffer(xmlPrepareBuf(doc.get()));
              if (!buffer || strcmp(small_document, buffer.get()) != 0)
                return 1;
              return sandbox::standard_descriptors_are_closed() ? 0 : 2;
            }));
  EXPECT_EQ(0, sandbox::with_only_standard_descriptors(
                   [&] { return !xmlPrepareBuf(doc.get()) && sandbox::standard_descriptors_are_closed() ? 0 : 1; }));
  EXPECT_TRUE(files_of("/var").empty());
}

TEST_F(XmlBuffer, IsNullWhenTheLengthOfTheFileIsUnknown) {
  const OwnFiles var("/var");
  const interposed::StandIn hook(interposed::ftell_call, no_position);
  Captured standard_output(1);
  EXPECT_EQ(nullptr, xmlPrepareBuf(small().get()));
  EXPECT_TRUE(files_of("/var").empty());
}

TEST_F(XmlBuffer, IsNullForANullDocument) {
  const OwnFiles var("/var");
  EXPECT_EQ(nullptr, xmlPrepareBuf(nullptr));
  EXPECT_TRUE(files_of("/var").empty());
}

TEST_F(XmlBuffer, IsNullWhenTheFileCannotBeMade) {
  const Document doc = small();
  Captured standard_output(1);
  {
    const OwnFiles var("/var", MS_RDONLY);
    EXPECT_EQ(nullptr, xmlPrepareBuf(doc.get()));
  }
  {
    const OwnFiles var("/var");
    const NoDescriptors none;
    EXPECT_EQ(nullptr, xmlPrepareBuf(doc.get()));
  }
  for (const char *suffix : {"", ":new"}) {
    const OwnFiles var("/var");
    at_each_name([&](const std::string &path) { mkdir((path + suffix).c_str(), 0700); });
    EXPECT_EQ(nullptr, xmlPrepareBuf(doc.get()));
    EXPECT_EQ(60u, files_of("/var").size());
  }
  EXPECT_EQ("", standard_output.text()) << "nothing was printed for it";
}

TEST_F(XmlBuffer, IsNullWhenTheDiskIsFull) {
  const OwnFiles var("/var", 0, "size=64k");
  Captured standard_output(1);
  EXPECT_EQ(nullptr, xmlPrepareBuf(document(element("a", std::string(200000, 'x').c_str())).get()));
  EXPECT_TRUE(files_of("/var").empty());
  for (char digit = '0'; digit < '9'; digit++) { // the disk is so full that the last block does not fit
    sandbox::write_file("/var/fill", std::string(60 * 1024, '.'));
    EXPECT_EQ(nullptr, xmlPrepareBuf(document(element("a", std::string(8000, digit).c_str())).get()));
    EXPECT_EQ(std::vector<std::string>{"/var/fill"}, files_of("/var"));
  }
}

TEST_F(XmlBuffer, FileStaysOpenAndOnDiskWithoutMemoryForTheBuffer) {
  const OwnFiles var("/var");
  // This runs in a process of its own, because what stays open ends with it.
  EXPECT_EQ(0, sandbox::in_child([] {
              const Document doc = small();
              const int before = open_descriptors();
              const Captured standard_output(1);
              printf("cnt = 0\n"); // standard output has its buffer from now on
              const int with_capture = open_descriptors();
              const time_t began = time(nullptr);
              unsigned kept = 0;
              sandbox::fail_each_allocation([&] { return xmlPrepareBuf(doc.get()); },
                                            [&](char *buffer, bool failed) {
                                              const std::vector<std::string> files = files_of("/var");
                                              if (buffer) {
                                                if (strcmp(buffer, small_document) != 0 || !files.empty())
                                                  _exit(2);
                                                xmlFreeBuf(buffer);
                                              } else if (!failed) {
                                                _exit(3);
                                              } else if (!files.empty()) {
                                                kept++;
                                                const std::string second = files[0].substr(strlen("/var/xml_"));
                                                const long at = strtol(second.c_str(), nullptr, 10);
                                                if (files.size() != 1 || second != std::to_string(at) || at < began ||
                                                    at > time(nullptr) || read_file(files[0]) != small_document)
                                                  _exit(4);
                                                unlink(files[0].c_str());
                                              }
                                            });
              if (kept != 1 || before + 2 < with_capture)
                return 5;
              return open_descriptors() == with_capture + 1 ? 0 : 6;
            }));
}

TEST_F(XmlDocFile, BeginsWithDeclarationAndRoot) {
  xml_doc_file *doc = xmlNewDocFile();
  ASSERT_NE(nullptr, doc);
  EXPECT_STREQ("1.0", doc->version);
  ASSERT_NE(nullptr, doc->fp);
  EXPECT_EQ(FD_CLOEXEC, fcntl(fileno(doc->fp), F_GETFD));
  rewind(doc->fp);
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<root>\n", sandbox::all_of(doc->fp));
  fclose(doc->fp);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, BecomesABuffer) {
  xml_doc_file *doc = xmlNewDocFile();
  fputs("<a>x</a>\n", doc->fp);
  unsigned length = 0;
  const Buffer buffer(xmlFileToBuf(doc, &length));
  ASSERT_NE(nullptr, buffer);
  EXPECT_STREQ("<?xml version=\"1.0\"?>\n<root>\n<a>x</a>\n</root>", buffer.get());
  EXPECT_EQ(strlen(buffer.get()), length);
  EXPECT_EQ(nullptr, doc->fp);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, WithoutElementsIsAnEmptyRoot) {
  xml_doc_file *doc = xmlNewDocFile();
  unsigned length = 0;
  const Buffer buffer(xmlFileToBuf(doc, &length));
  EXPECT_STREQ("<?xml version=\"1.0\"?>\n<root>\n</root>", buffer.get());
  EXPECT_EQ(36u, length);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, EndsAtItsEndWhereverTheCallerStands) {
  xml_doc_file *doc = xmlNewDocFile();
  fputs("<a/>", doc->fp);
  rewind(doc->fp);
  EXPECT_EQ('<', getc(doc->fp));
  unsigned length = 0;
  const Buffer buffer(xmlFileToBuf(doc, &length));
  EXPECT_STREQ("<?xml version=\"1.0\"?>\n<root>\n<a/></root>", buffer.get());
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, HoldsZeroBytesAndALotOfThem) {
  xml_doc_file *doc = xmlNewDocFile();
  const std::string zeros(2 * 1000 * 1000, '\0');
  fwrite(zeros.data(), 1, zeros.size(), doc->fp);
  unsigned length = 0;
  const Buffer buffer(xmlFileToBuf(doc, &length));
  ASSERT_NE(nullptr, buffer);
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<root>\n" + zeros + "</root>", std::string(buffer.get(), length));
  EXPECT_EQ('\0', buffer.get()[length]);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, TakesThePrintedElementsOfADocument) {
  const Document tree = small();
  xml_doc_file *doc = xmlNewDocFile();
  Captured standard_output(1);
  printfXmlDoc(doc->fp, tree.get());
  unsigned length = 0;
  const Buffer buffer(xmlFileToBuf(doc, &length));
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<root>\n" + std::string(small_document) + "</root>", buffer.get());
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, HoldsNoneOfWhatIsPrintedToAClosedStandardOutput) {
  const Document tree = small();
  EXPECT_EQ(
      0, sandbox::without_standard_descriptors([&] {
        xml_doc_file *doc = xmlNewDocFile();
        if (!doc->fp || !sandbox::standard_descriptors_are_closed() || fcntl(fileno(doc->fp), F_GETFD) != FD_CLOEXEC)
          return 1;
        printfXmlDoc(doc->fp, tree.get());
        unsigned length = 0;
        const Buffer buffer(xmlFileToBuf(doc, &length));
        xmlFreeDocFile(doc);
        return "<?xml version=\"1.0\"?>\n<root>\n" + std::string(small_document) + "</root>" == buffer.get() ? 0 : 2;
      }));
  EXPECT_EQ(0, sandbox::with_only_standard_descriptors([] {
              xml_doc_file *doc = xmlNewDocFile();
              const bool has_file = doc->fp;
              xmlFreeDocFile(doc);
              return !has_file && sandbox::standard_descriptors_are_closed() ? 0 : 1;
            }));
}

TEST_F(XmlDocFile, WhoseLengthIsUnknownGivesNoBuffer) {
  xml_doc_file *doc = xmlNewDocFile();
  unsigned length = 42;
  {
    const interposed::StandIn hook(interposed::ftell_call, no_position);
    EXPECT_EQ(nullptr, xmlFileToBuf(doc, &length));
  }
  EXPECT_EQ(42u, length);
  ASSERT_NE(nullptr, doc->fp);
  fclose(doc->fp);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, HasNoStreamWithoutAFile) {
  xml_doc_file *doc;
  {
    const NoDescriptors none;
    doc = xmlNewDocFile();
  }
  ASSERT_NE(nullptr, doc);
  EXPECT_STREQ("1.0", doc->version);
  EXPECT_EQ(nullptr, doc->fp);
  unsigned length = 42;
  EXPECT_EQ(nullptr, xmlFileToBuf(doc, &length));
  EXPECT_EQ(42u, length);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, NullArgumentsChangeNothing) {
  unsigned length = 42;
  EXPECT_EQ(nullptr, xmlFileToBuf(nullptr, &length));
  EXPECT_EQ(42u, length);
  xml_doc_file *doc = xmlNewDocFile();
  EXPECT_EQ(nullptr, xmlFileToBuf(doc, nullptr));
  rewind(doc->fp);
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<root>\n", sandbox::all_of(doc->fp));
  fclose(doc->fp);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, GivesOneBufferAndNoSecond) {
  xml_doc_file *doc = xmlNewDocFile();
  unsigned length = 0;
  const Buffer buffer(xmlFileToBuf(doc, &length));
  EXPECT_EQ(nullptr, xmlFileToBuf(doc, &length));
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, FailedAllocationLeavesTheFileOpen) {
  EXPECT_GE(sandbox::fail_each_allocation(xmlNewDocFile,
                                          [](xml_doc_file *doc, bool failed) {
                                            if (!doc) {
                                              EXPECT_TRUE(failed);
                                              return;
                                            }
                                            if (doc->fp)
                                              fclose(doc->fp);
                                            xmlFreeDocFile(doc);
                                          }),
            1u);
  xml_doc_file *doc = xmlNewDocFile();
  sandbox::fail_allocation(1);
  unsigned length = 42;
  EXPECT_EQ(nullptr, xmlFileToBuf(doc, &length));
  EXPECT_TRUE(sandbox::allocation_failed());
  sandbox::fail_allocation(0);
  EXPECT_EQ(42u, length);
  ASSERT_NE(nullptr, doc->fp);
  rewind(doc->fp);
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<root>\n</root>", sandbox::all_of(doc->fp));
  fclose(doc->fp);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, FullDiskGivesNoBuffer) {
  const OwnFiles tmp("/tmp", 0, "size=64k,mode=1777");
  xml_doc_file *doc = xmlNewDocFile();
  ASSERT_NE(nullptr, doc->fp);
  const std::string much(200000, 'x');
  fputs(much.c_str(), doc->fp);
  unsigned length = 42;
  EXPECT_EQ(nullptr, xmlFileToBuf(doc, &length));
  EXPECT_EQ(42u, length);
  ASSERT_NE(nullptr, doc->fp);
  fclose(doc->fp);
  xmlFreeDocFile(doc);
}

TEST_F(XmlDocFile, ThatLostBytesToAFullDiskGivesNoBuffer) {
  const OwnFiles tmp("/tmp", 0, "size=64k,mode=1777");
  sandbox::write_file("/tmp/fill", std::string(60 * 1024, '.'));
  xml_doc_file *doc = xmlNewDocFile();
  ASSERT_NE(nullptr, doc->fp);
  fputs(std::string(20000, 'x').c_str(), doc->fp);
  fflush(doc->fp);
  ASSERT_TRUE(ferror(doc->fp));
  unlink("/tmp/fill"); // there is room again for what comes now
  unsigned length = 42;
  EXPECT_EQ(nullptr, xmlFileToBuf(doc, &length));
  EXPECT_EQ(42u, length);
  fclose(doc->fp);
  xmlFreeDocFile(doc);
}
