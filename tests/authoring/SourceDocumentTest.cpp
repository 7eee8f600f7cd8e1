// Lint reads a manifest with lines where the library reads it without: both must see the same tree.
#include "authoring/SourceDocument.h"

#include <gtest/gtest.h>

#include "Common/Xml.h"

namespace {

using authoring::SourceElement;

// name[attribute=value]{text}(children), with all that a manifest is read from.
std::string Shape(const SourceElement& element) {
  std::string shape = element.name;
  for (const auto& [name, value] : element.attributes) shape += "[" + name + "=" + value + "]";
  if (!element.text.empty()) shape += "{" + element.text + "}";
  for (const SourceElement& child : element.children) shape += "(" + Shape(child) + ")";
  return shape;
}

std::string Shape(const XMLElement& element) {
  std::string shape = element.GetElementName();
  for (unsigned i = 0; i < element.GetVariableNum(); ++i) {
    const XMLVariable& variable = *element.GetVariables()[i];
    shape += "[" + variable.GetName() + "=" + variable.GetValue() + "]";
  }
  std::string text;
  if (element.GetContent(text)) shape += "{" + text + "}";
  for (unsigned i = 0; i < element.GetChildrenNum(); ++i) shape += "(" + Shape(*element.GetChildren()[i]) + ")";
  return shape;
}

struct Row {
  const char* name;
  const char* text;   // after the declaration
  const char* shape;  // "" for no root
};

const Row kRows[] = {
    {"plain", "<a><b>x</b><c/></a>", "a(b{x})(c)"},
    {"attributes", "<a n=\"1\" m=\"two words\"/>", "a[n=1][m=two words]"},
    {"tab before attribute", "<a\tn=\"1\"/>", "a[n=1]"},
    {"blank before equals", "<a n =\"1\"/>", "a[n =1]"},
    {"attribute without quotes", "<a n=1 m=\"2\"/>", "a[n=1 m=]"},
    {"single quotes", "<a n='1' m=\"2\"/>", "a[n='1' m=]"},
    {"line break after name", "<a\nn=\"1\"/>", nullptr},
    {"line break between attributes", "<a n=\"1\"\nm=\"2\"/>", "a[n=1][\nm=2]"},
    {"slash in value", "<a n=\"x/y\">t</a>", "a[n=x/y]{t}"},
    {"greater than in value", "<a n=\"x>y\"/></a>", nullptr},
    {"empty attribute", "<a n=\"\"/>", "a[n=]"},
    {"text is trimmed", "<a> \t\n x  y \r\n</a>", "a{x  y}"},
    {"first text counts", "<a>one<b/>two</a>", "a{one}(b)"},
    {"references", "<a n=\"&quot;&#65;\">&lt;&amp;&gt;&apos;&#x42;</a>", "a[n=\"A]{<&>'B}"},
    {"bare ampersand", "<a>x & y &nbsp; z</a>", "a{x & y &nbsp; z}"},
    {"comment", "<a><!-- no --><b/></a>", "a(b)"},
    {"comment with greater than", "<a><!-- x > y --></a>", "a{y -->}"},
    {"character data", "<a><![CDATA[<x>]]></a>", "a"},
    {"character data beside text", "<a>t<![CDATA[<x>]]></a>", "a{t}"},
    {"processing instruction", "<a><?p x?><b/></a>", "a(b)"},
    {"document type is an element", "<!DOCTYPE a><a/></x>", nullptr},
    {"closed by depth", "<a><b>x</c></d>", "a(b{x})"},
    {"never closed", "<a><b></b>", ""},
    {"tag never ended", "<a><b/", ""},
    {"last full element is the root", "<a/><b>x</b>", "b{x}"},
    {"empty elements: the first is the root", "<a/><b/>", "a"},
    {"text outside", "x<a/>y", "a"},
    {"closing tag first", "</x><a/>", "a"},
    {"name with a colon", "<n:a/>", "n:a"},
};

class SourceRow : public testing::TestWithParam<Row> {};

}  // namespace

TEST_P(SourceRow, IsReadAsTheLibraryReadsIt) {
  const std::string text = std::string("<?xml version=\"1.0\"?>\n") + GetParam().text;
  const std::optional<SourceElement> root = authoring::ParseSource(text);
  const XML document(text.c_str(), 1);
  const std::string shape = root ? Shape(*root) : "";
  EXPECT_EQ(shape, document.GetRootElement() ? Shape(*document.GetRootElement()) : "");
  if (GetParam().shape) {
    EXPECT_EQ(shape, GetParam().shape);
  }
}

INSTANTIATE_TEST_SUITE_P(Texts, SourceRow, testing::ValuesIn(kRows), [](const auto& row) {
  std::string name = row.param.name;
  for (char& c : name) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
});

TEST(SourceDocument, KnowsTheLineOfEveryElement) {
  const std::optional<SourceElement> root =
      authoring::ParseSource("<?xml version=\"1.0\"?>\n\n<a>\n  <b\n  n=\"1\"/><c/>\n<!--\n\n--><d>\n</d></a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->line, 3);
  std::vector<int> lines;
  for (const SourceElement& child : root->children) lines.push_back(child.line);
  EXPECT_EQ(lines, (std::vector<int>{4, 5, 8}));
}

TEST(SourceDocument, LeavesOutWhatIsNestedWithoutEnd) {
  std::string text;
  for (int i = 0; i < 100'000; ++i) text += "<a>";
  for (int i = 0; i < 99'999; ++i) text += "</a>";
  const std::optional<SourceElement> root = authoring::ParseSource(text + "<last/></a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->children.size(), 2u);
  EXPECT_TRUE(root->Child("last"));
}
