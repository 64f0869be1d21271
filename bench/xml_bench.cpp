// This measures building, printing and searching XML documents beside tinyxml2 and pugixml. Each does the work in its
// own way: this library prints every content in CDATA sections, and searches the text, which the others parse first.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <tinyxml2.h>
#include <torvane.h>
#include <unistd.h>
#include <pugixml.hpp>

#include <string>

namespace {

constexpr int elements = 200;

struct Values {
  std::string name[elements], id[elements], text[elements];
  Values() {
    for (int i = 0; i < elements; i++) {
      name[i] = "host" + std::to_string(1000 + i);
      id[i] = "br0." + std::to_string(i);
      text[i] = "192.168.1." + std::to_string(i) + " 00:11:22:33:44:55 workstation of room " + std::to_string(i);
    }
  }
};

const Values values;

// The printer also reports on standard output, which is not to be measured.
class SilentOutput {
 public:
  SilentOutput() : saved_(dup(STDOUT_FILENO)) {
    fflush(stdout);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    close(null);
  }
  ~SilentOutput() {
    fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }
  SilentOutput(const SilentOutput &) = delete;
  SilentOutput &operator=(const SilentOutput &) = delete;

 private:
  int saved_;
};

std::string torvane_document() {
  xml_doc *doc = xmlNewDoc();
  doc->root = xmlNewNode("hosts");
  for (int i = 0; i < elements; i++) {
    xml_node *host = xmlAddChild(doc->root, xmlNewNode(values.name[i].c_str()));
    xmlAddAttr(host, "id", values.id[i].c_str());
    xmlAddAttr(host, "class", "lan");
    xmlAddText(host, xmlNewText(values.text[i].c_str()));
  }
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  printfXmlDoc(out, doc);
  fclose(out);
  xmlFreeDoc(doc);
  std::string result(text, size);
  free(text);
  return result;
}

std::string tinyxml2_document() {
  tinyxml2::XMLDocument doc;
  doc.InsertEndChild(doc.NewDeclaration("xml version=\"1.0\""));
  tinyxml2::XMLElement *root = doc.NewElement("hosts");
  doc.InsertEndChild(root);
  for (int i = 0; i < elements; i++) {
    tinyxml2::XMLElement *host = root->InsertNewChildElement(values.name[i].c_str());
    host->SetAttribute("id", values.id[i].c_str());
    host->SetAttribute("class", "lan");
    host->SetText(values.text[i].c_str());
  }
  tinyxml2::XMLPrinter printer;
  doc.Print(&printer);
  return printer.CStr();
}

struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void *data, size_t size) override {
    text.append(static_cast<const char *>(data), size);
  }
};

std::string pugixml_document() {
  pugi::xml_document doc;
  pugi::xml_node root = doc.append_child("hosts");
  for (int i = 0; i < elements; i++) {
    pugi::xml_node host = root.append_child(values.name[i].c_str());
    host.append_attribute("id") = values.id[i].c_str();
    host.append_attribute("class") = "lan";
    host.append_child(pugi::node_pcdata).set_value(values.text[i].c_str());
  }
  StringWriter writer;
  doc.save(writer);
  return writer.text;
}

benchmark::Counter each_takes(double count) {
  return {count, benchmark::Counter::kIsRate | benchmark::Counter::kInvert};
}

void build_and_print(benchmark::State &state, std::string (*document)()) {
  const SilentOutput silent;
  size_t bytes = 0;
  for (auto _ : state) {
    std::string text = document();
    benchmark::DoNotOptimize(text.data());
    bytes += text.size();
  }
  state.counters["per_byte"] = each_takes(static_cast<double>(bytes));
  state.counters["per_element"] = each_takes(static_cast<double>(state.iterations()) * elements);
}

// All look for the last element in the text that pugixml printed, so that the bytes are the same.
void look_up(benchmark::State &state, bool (*found)(const std::string &)) {
  const std::string text = pugixml_document();
  for (auto _ : state)
    if (!found(text))
      state.SkipWithError("not found");
  state.counters["per_byte"] = each_takes(static_cast<double>(state.iterations()) * static_cast<double>(text.size()));
}

bool torvane_finds(const std::string &text) {
  char value[128];
  return get_element_value(text.c_str(), value, sizeof(value), "hosts/host1199") == 1;
}

bool tinyxml2_finds(const std::string &text) {
  tinyxml2::XMLDocument doc;
  doc.Parse(text.data(), text.size());
  return doc.FirstChildElement("hosts")->FirstChildElement("host1199")->GetText() != nullptr;
}

bool pugixml_finds(const std::string &text) {
  pugi::xml_document doc;
  doc.load_buffer(text.data(), text.size());
  return *doc.child("hosts").child("host1199").text().get() != '\0';
}

BENCHMARK_CAPTURE(build_and_print, torvane, torvane_document);
BENCHMARK_CAPTURE(build_and_print, tinyxml2, tinyxml2_document);
BENCHMARK_CAPTURE(build_and_print, pugixml, pugixml_document);
BENCHMARK_CAPTURE(look_up, torvane, torvane_finds);
BENCHMARK_CAPTURE(look_up, tinyxml2, tinyxml2_finds);
BENCHMARK_CAPTURE(look_up, pugixml, pugixml_finds);

} // namespace
