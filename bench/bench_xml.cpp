// Reads manifests with the library's XML parser and with the peers.
//   bench_xml make PACKAGES FILE                 writes an "update.xml"
//   bench_xml parse PARSER FILE TIMES            parses and destroys
//   bench_xml records PARSER FILE TIMES          parses and reads groups and packages into records
// The last two print the seconds that this took. PARSER is quarvel, pugixml, expat, libxml2 or tinyxml2; the records
// are read by the first two.
#include <expat.h>
#include <fmt/core.h>
#include <libxml/parser.h>
#include <tinyxml2.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "Common/StringUtil.h"
#include "Common/Xml.h"
#include "installer/bundle/BundleModel.h"

namespace {

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

[[noreturn]] void Fail(std::string_view reason) {
  fmt::print(stderr, "bench_xml: {}\n", reason);
  std::exit(1);
}

// --- the input ---

void PrintPackage(FILE* out, int number) {
  fmt::print(out,
             "        <Package>\n"
             "          <Name>Application {0}{1}</Name>\n"
             "          <FileName>app{0:06}.app</FileName>\n"
             "          <GUID>{2:032x}</GUID>\n"
             "          <Version>1.{3}.0</Version>\n"
             "          <FileType>PenApp</FileType>\n"
             "          <Action>Install</Action>\n"
             "          <TransferOrder>{0}</TransferOrder>\n"
             "          <BuildNumber>{4}</BuildNumber>\n"
             "          <Properties><Property name=\"Vendor\" value=\"Example\"/></Properties>\n"
             "        </Package>\n",
             number, number % 8 == 0 ? " &amp; more &#169;" : "", number * 7919L, number % 10, number + 1000);
}

void Make(int packages, const char* path) {
  constexpr int kPerGroup = 100;
  const File out(std::fopen(path, "wb"));
  if (!out) Fail("cannot write");
  fmt::print(out.get(), "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n<UPDATE>\n  <GroupList>\n");
  for (int first = 0; first < packages; first += kPerGroup) {
    fmt::print(out.get(),
               "    <Group>\n      <Name>Group {0}</Name>\n      <Version>1.0</Version>\n      <Folder>G{0}</Folder>\n"
               "      <PenTypes>0,1</PenTypes>\n      <FileList>\n",
               first / kPerGroup);
    for (int i = first; i < std::min(first + kPerGroup, packages); ++i) PrintPackage(out.get(), i);
    fmt::print(out.get(), "      </FileList>\n    </Group>\n");
  }
  fmt::print(out.get(), "  </GroupList>\n</UPDATE>\n");
}

// --- parse and destroy ---

void ParseQuarvel(const char* path) {
  if (XML(path, 0).ParseStatus() != 0) Fail("quarvel");
}

void ParsePugixml(const char* path) {
  pugi::xml_document document;
  if (!document.load_file(path)) Fail("pugixml");
}

void ParseExpat(const char* path) {
  const File in(std::fopen(path, "rb"));
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
  if (!in || !parser) Fail("expat");
  size_t elements = 0;
  XML_SetUserData(parser.get(), &elements);
  XML_SetElementHandler(
      parser.get(), [](void* data, const XML_Char*, const XML_Char**) { ++*static_cast<size_t*>(data); }, nullptr);
  constexpr int kChunk = 1 << 16;
  for (bool last = false; !last;) {
    void* buffer = XML_GetBuffer(parser.get(), kChunk);
    const size_t size = std::fread(buffer, 1, kChunk, in.get());
    last = size < kChunk;
    if (XML_ParseBuffer(parser.get(), static_cast<int>(size), last) != XML_STATUS_OK) Fail("expat");
  }
}

void ParseLibxml2(const char* path) {
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(xmlReadFile(path, nullptr, XML_PARSE_HUGE), xmlFreeDoc);
  if (!document) Fail("libxml2");
}

void ParseTinyxml2(const char* path) {
  tinyxml2::XMLDocument document;
  if (document.LoadFile(path) != tinyxml2::XML_SUCCESS) Fail("tinyxml2");
}

// --- the same records from two trees; no file system ---

std::string TextOf(const XMLElement* element, const char* name) {
  std::string text;
  element->GetChildContent(name, text);
  return text;
}
std::string TextOf(pugi::xml_node element, const char* name) {
  return element.child_value(name);
}

int32_t NumberOf(const XMLElement* element, const char* name) {
  return element->GetChildContentInt(name, 0);
}
int32_t NumberOf(pugi::xml_node element, const char* name) {
  return CStringUtil::ToInt(element.child_value(name));
}

void ReadProperties(const XMLElement* element, BundlePackage& package) {
  const XMLElement* list = element->GetChild("Properties");
  for (unsigned i = 0; list && i < list->GetChildrenNum(); ++i) {
    BundlePackageProperty& property = package.properties.emplace_back();
    list->GetChildren()[i]->GetVariable("name", property.name);
    list->GetChildren()[i]->GetVariable("value", property.value);
  }
}
void ReadProperties(pugi::xml_node element, BundlePackage& package) {
  for (const pugi::xml_node node : element.child("Properties")) {
    BundlePackageProperty& property = package.properties.emplace_back();
    property.name = node.attribute("name").value();
    property.value = node.attribute("value").value();
  }
}

template <class Element>
void ReadPackage(Element element, BundleGroup& group, BundlePackage& package) {
  package.group = &group;
  package.name = TextOf(element, "Name");
  package.bundlePath = group.folder + "/" + TextOf(element, "FileName");
  package.guid = TextOf(element, "GUID");
  package.version = TextOf(element, "Version");
  package.fileType = TextOf(element, "FileType");
  package.action = TextOf(element, "Action");
  package.transferOrder = NumberOf(element, "TransferOrder");
  package.buildNumber = NumberOf(element, "BuildNumber");
  ReadProperties(element, package);
}

template <class Element>
void ReadGroup(Element element, BundleGroup& group) {
  group.name = TextOf(element, "Name");
  group.version = TextOf(element, "Version");
  group.folder = TextOf(element, "Folder");
  CStringUtil::SplitToInts(TextOf(element, "PenTypes"), ",", group.penTypes);
}

void RecordsQuarvel(const char* path) {
  const XML document(path, 0);
  const XMLElement* list = document.GetRootElement()->GetChild("GroupList");
  std::vector<BundleGroup> groups(list->GetChildrenNum());
  for (unsigned g = 0; g < list->GetChildrenNum(); ++g) {
    const XMLElement* element = list->GetChildren()[g];
    ReadGroup(element, groups[g]);
    const XMLElement* files = element->GetChild("FileList");
    groups[g].packages.resize(files->GetChildrenNum());
    for (unsigned p = 0; p < files->GetChildrenNum(); ++p) {
      ReadPackage<const XMLElement*>(files->GetChildren()[p], groups[g], groups[g].packages[p]);
    }
  }
  if (groups.back().packages.back().transferOrder == 0) Fail("quarvel records");
}

void RecordsPugixml(const char* path) {
  pugi::xml_document document;
  if (!document.load_file(path)) Fail("pugixml");
  const pugi::xml_node list = document.document_element().child("GroupList");
  const auto count = [](pugi::xml_node node) { return static_cast<size_t>(std::distance(node.begin(), node.end())); };
  std::vector<BundleGroup> groups(count(list));
  size_t g = 0;
  for (const pugi::xml_node element : list) {
    BundleGroup& group = groups[g++];
    ReadGroup(element, group);
    const pugi::xml_node files = element.child("FileList");
    group.packages.resize(count(files));
    size_t p = 0;
    for (const pugi::xml_node file : files) ReadPackage(file, group, group.packages[p++]);
  }
  if (groups.back().packages.back().transferOrder == 0) Fail("pugixml records");
}

using Work = void (*)(const char*);
const std::map<std::string_view, Work> kParse = {{"quarvel", ParseQuarvel},
                                                 {"pugixml", ParsePugixml},
                                                 {"expat", ParseExpat},
                                                 {"libxml2", ParseLibxml2},
                                                 {"tinyxml2", ParseTinyxml2}};
const std::map<std::string_view, Work> kRecords = {{"quarvel", RecordsQuarvel}, {"pugixml", RecordsPugixml}};

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string_view(argv[1]) == "make") {
    Make(std::atoi(argv[2]), argv[3]);
    return 0;
  }
  if (argc != 5) Fail("make PACKAGES FILE | parse PARSER FILE TIMES | records PARSER FILE TIMES");
  const auto& works = std::string_view(argv[1]) == "parse" ? kParse : kRecords;
  const auto work = works.find(argv[2]);
  if (work == works.end()) Fail("no such parser");
  const auto start = std::chrono::steady_clock::now();
  for (int times = std::atoi(argv[4]); times > 0; --times) work->second(argv[3]);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  fmt::print("{:.6f}\n", taken.count());
  return 0;
}
