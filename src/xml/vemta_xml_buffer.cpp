// Hands out XML documents as heap buffers: printed trees, and documents that their callers write into a temporary file.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include "base/high_descriptor.h"
#include "base/new_file.h"
#include "torvane/xml.h"
#include "xml/xml.h"

using namespace torvane;

namespace {

constexpr char file_root[] = "root"; // element of documents in a file

// Writes out what the stream has buffered and goes back to its start. Returns how many bytes the stream holds, or -1
// when they could not all be written.
long finished_length(FILE *stream) {
  if (fseek(stream, 0, SEEK_END) != 0 || ferror(stream))
    return -1;
  const long length = ftell(stream);
  return length >= 0 && fseek(stream, 0, SEEK_SET) == 0 ? length : -1;
}

// Makes a file without a name, closed on exec and above the descriptors of standard input to error.
FILE *nameless_file() {
  FILE *file = tmpfile();
  if (!file)
    return nullptr;
  if (fileno(file) > STDERR_FILENO) {
    fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
    return file;
  }
  FILE *const moved = open_stream(fcntl(fileno(file), F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "w+");
  fclose(file);
  return moved;
}

// Returns the next `length` bytes of the stream with a terminator, in a block of their own; null without memory.
char *read_whole(FILE *stream, long length) {
  char *buffer = static_cast<char *>(calloc(1, static_cast<size_t>(length) + 1));
  if (buffer)
    buffer[fread(buffer, 1, static_cast<size_t>(length), stream)] = '\0';
  return buffer;
}

} // namespace

extern "C" {

char *xmlPrepareBuf(const xml_doc *doc) {
  if (!doc)
    return nullptr;
  // This is meant: two calls in one second use the same file.
  char path[128];
  snprintf(path, sizeof(path), "%s/xml_%lu", "/var", static_cast<unsigned long>(time(nullptr)));
  FILE *file = create_anew(path, 0666);
  if (!file)
    return nullptr;
  printfXmlDoc(file, doc);

  char *buffer = nullptr;
  const long length = finished_length(file);
  if (length >= 0) {
    buffer = read_whole(file, length);
    if (!buffer)
      return nullptr; // this is meant: the file stays, open and on disk, so that the document is not lost
  }
  fclose(file);
  unlink(path);
  return buffer;
}

void xmlFreeBuf(char *buf) {
  free(buf);
}

xml_doc_file *xmlNewDocFile(void) {
  xml_doc_file *doc = static_cast<xml_doc_file *>(malloc(sizeof(*doc)));
  if (!doc)
    return nullptr;
  doc->version = xml_version;
  doc->fp = nameless_file();
  if (doc->fp)
    fprintf(doc->fp, "<?xml version=\"%s\"?>\n<%s>\n", doc->version, file_root);
  return doc;
}

void xmlFreeDocFile(xml_doc_file *doc) {
  free(doc);
}

char *xmlFileToBuf(xml_doc_file *doc, unsigned *len) {
  if (!doc || !doc->fp || !len)
    return nullptr;
  fseek(doc->fp, 0, SEEK_END);
  fprintf(doc->fp, "</%s>", file_root);
  const long length = finished_length(doc->fp);
  char *buffer = length >= 0 ? read_whole(doc->fp, length) : nullptr;
  if (!buffer)
    return nullptr; // this is meant: the file stays open
  fclose(doc->fp);
  doc->fp = nullptr;
  *len = static_cast<unsigned>(length);
  return buffer;
}

} // extern "C"
