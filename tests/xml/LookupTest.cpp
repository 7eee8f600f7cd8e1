#include <gtest/gtest.h>

#include <clocale>
#include <cwchar>

#include "tests/xml/Dump.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\"?>";

TEST(XmlLookup, FindsTheFirstChildOfAName) {
  const XML document((kHead + "<r><x/><P n=\"1\"/><P n=\"2\"/><a&b/></r>").c_str(), 1);
  const XMLElement* root = document.GetRootElement();
  ASSERT_EQ(root->GetChildrenNum(), 4U);
  EXPECT_EQ(root->GetChild("P"), root->GetChildren()[1]);
  EXPECT_EQ(root->FindElement("P"), 1);
  EXPECT_EQ(root->GetChild("p"), nullptr);
  EXPECT_EQ(root->FindElement("p"), -1);
  EXPECT_EQ(root->FindElement("a&b"), 3);
  EXPECT_EQ(root->FindElement("a&amp;b"), -1);
  EXPECT_EQ(root->GetChild("P")->GetParent(), root);
  EXPECT_EQ(root->GetChild("P")->GetDeep(), 1U);
  root->GetChildren()[0] = nullptr;
  EXPECT_EQ(root->FindElement("P"), 1);
}

TEST(XmlLookup, ReadsContents) {
  const XML document(
      (kHead + "<r><T>one<b/>two</T><E/><E2></E2><D><![CDATA[x]]></D><L>" + std::string(300, '1') + "</L></r>").c_str(),
      1);
  const XMLElement* root = document.GetRootElement();
  std::string text = "before";
  EXPECT_TRUE(root->GetChildContent("T", text));
  EXPECT_EQ(text, "one");
  for (const char* name : {"E", "E2", "D", "missing"}) {
    EXPECT_FALSE(root->GetChildContent(name, text)) << name;
    EXPECT_EQ(text, "one") << name;
  }
  char small[3];
  EXPECT_TRUE(root->GetChildContent("T", small));
  EXPECT_STREQ(small, "on");
  EXPECT_EQ(root->GetChild("L")->GetContents()[0]->GetValue(nullptr, 0), 300U);
  EXPECT_EQ(root->GetChildContentInt("L", 0), INT32_MAX);
}

TEST(XmlLookup, ReadsNumbersAndFlags) {
  const struct {
    const char* text;
    int32_t number;
    bool flag;
  } rows[] = {{"<v/>", -1, false},        {"<v></v>", -1, false},
              {"<v>abc</v>", 0, false},   {"<v>12abc</v>", 12, false},
              {"<v>-7</v>", -7, false},   {"<v>99999999999</v>", INT32_MAX, false},
              {"<v>true</v>", 0, true},   {"<v>TRUE</v>", 0, true},
              {"<v>1</v>", 1, false},     {"<v>true&#32;</v>", 0, false},
              {"<v> True </v>", 0, true}, {"<w>1</w>", -1, false}};
  for (const auto& row : rows) {
    const XML document((kHead + "<r>" + row.text + "</r>").c_str(), 1);
    EXPECT_EQ(document.GetRootElement()->GetChildContentInt("v", -1), row.number) << row.text;
    EXPECT_EQ(document.GetRootElement()->GetChildContentBool("v"), row.flag) << row.text;
  }
}

TEST(XmlLookup, ReadsAttributes) {
  const XML document((kHead + "<a name=\"x&amp;y\" name=\"2\" n&amp;m=\"3\"/>").c_str(), 1);
  const XMLElement* root = document.GetRootElement();
  std::string value;
  EXPECT_TRUE(root->GetVariable("name", value));
  EXPECT_EQ(value, "x&y");
  char small[3];
  EXPECT_TRUE(root->GetVariable("name", small));
  EXPECT_STREQ(small, "x&");
  EXPECT_EQ(root->FindVariable("n&m"), 2);
  EXPECT_EQ(root->GetVariables()[2]->GetValueInt(), 3);
  EXPECT_FALSE(root->GetVariable("Name", value));
  EXPECT_EQ(root->FindVariable("n"), -1);
}

struct DecodeCase {
  const char* stored;
  const char* read;
};

TEST(XmlText, Decodes) {
  const DecodeCase rows[] = {{"&amp;&lt;&gt;&quot;&apos;", "&<>\"'"},
                             {"&#65;&#x41;&#X61;", "AAa"},
                             {"&#65x&#66", "AB"},
                             {"a&b", "a&b"},
                             {"&", "&"},
                             {"&&amp;", "&&"},
                             {"&#;&#x;&#xg;", "&#;&#x;&#xg;"},
                             {"&amp;lt;", "&lt;"},
                             {"&copy;", "&copy;"},
                             {"&#0;x", "x"},
                             {"&#99999999999;x", "x"}};
  for (const DecodeCase& row : rows) EXPECT_EQ(XML::XMLDecode(row.stored), row.read) << row.stored;
}

TEST(XmlText, DecodesByTheLocale) {
  EXPECT_EQ(XML::XMLDecode("<&#233;>"), "<>");  // the C locale has none
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_EQ(XML::XMLDecode("<&#233;>"), "<\xC3\xA9>");
  XML document;
  document.LoadText(L"<?xml?><a>\u00E9</a>");
  std::string text;
  EXPECT_TRUE(document.GetRootElement()->GetContent(text));
  EXPECT_EQ(text, "\xC3\xA9");
  setlocale(LC_CTYPE, "C");
}

TEST(XmlText, Encodes) {
  EXPECT_EQ(XML::XMLEncode("a&b<c>\"'&#65;"), "a&amp;b&lt;c&gt;&quot;&apos;&#65;");
  EXPECT_EQ(XML::XMLEncode("&", nullptr, 0), 5U);
  char small[4];
  EXPECT_EQ(XML::XMLDecode("&lt;abcd", small, sizeof(small)), 5U);
  EXPECT_STREQ(small, "<ab");
}

}  // namespace
