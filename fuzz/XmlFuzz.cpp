// The XML parser, and what the writer makes of its trees. The input is a document.
#include <algorithm>
#include <cctype>
#include <string_view>

#include "Common/Xml.h"
#include "fuzz/Fuzz.h"

namespace {

bool IsPlainName(std::string_view name) {
  const auto isPlain = [](unsigned char c) {
    return isalnum(c) || c == '-' || c == '_' || c == '.' || c == ':' || c >= 0x80;
  };
  return !name.empty() && std::all_of(name.begin(), name.end(), isPlain);
}

// Text that a stray closing tag parts is one text when it is read again.
bool HasPartedText(const XMLElement& element) {
  const auto isParted = [](const XMLContent* a, const XMLContent* b) {
    return a->GetEP() == b->GetEP() && a->StandsRightBefore(*b);
  };
  XMLContent** const contents = element.GetContents();
  return std::adjacent_find(contents, contents + element.GetContentsNum(), isParted) !=
         contents + element.GetContentsNum();
}

bool CanBeWrittenAgain(const XMLElement& element) {
  for (unsigned i = 0; i < element.GetVariableNum(); ++i) {
    if (!IsPlainName(element.GetVariables()[i]->name())) return false;
  }
  return IsPlainName(element.name()) && !HasPartedText(element);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const XML document(TextOf(data, size).c_str(), 1);
  FUZZ_CHECK(document.IntegrityTest());
  XMLElement* root = document.GetRootElement();
  if (!root) return 0;
  FUZZ_CHECK(document.Compare(XML(document)));

  std::vector<XMLElement*> all = root->GetAllChildren();
  all.push_back(root);
  bool plain = document.ParseStatus() == 0;
  std::string text;
  for (const XMLElement* element : all) {
    plain = plain && CanBeWrittenAgain(*element);
    element->GetContent(text);
    FUZZ_CHECK(XML::XMLDecode(XML::XMLEncode(text)).size() <= text.size());
    const XMLElement* parent = element->GetParent();
    if (parent) FUZZ_CHECK(parent->GetChild(element->GetElementName()) != nullptr);
  }
  if (!plain) return 0;
  text.clear();
  document.Export(text);
  FUZZ_CHECK(XML(text.c_str(), 1).Compare(document));
  return 0;
}
