#include <gtest/gtest.h>

#include "tests/support/TempFolder.h"
#include "tests/xml/Dump.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\"?>";
const std::string kText = kHead +
                          "<r><g id=\"1\"><p>one</p><p k=\"a/b\">two</p></g><g id=\"2\"><h><p>three</p></h></g>"
                          "<x&y>four</x></r>";

TEST(XmlQuery, FindsWhatMatches) {
  const struct {
    const char* query;
    const char* matches;  // by index in "\a[0]\b[1]" form
  } rows[] = {
      {"", "\\r[0] "},
      {"g", "\\r[0]\\g[0] \\r[0]\\g[1] "},
      {"g[1]", "\\r[0]\\g[1] "},
      {"g[2]", ""},
      {"g/p[1]", "\\r[0]\\g[0]\\p[1] "},
      {"*/p", "\\r[0]\\g[0]\\p[0] \\r[0]\\g[0]\\p[1] "},
      {"**/p[0]", "\\r[0]\\g[0]\\p[0] \\r[0]\\g[1]\\h[0]\\p[0] "},
      {"**/**/h", "\\r[0]\\g[1]\\h[0] "},
      {"g[@id]/@id", "\\r[0]\\g[0] \\r[0]\\g[1] "},
      {"g[@id=2]", "\\r[0]\\g[1] "},
      {"**/p[@k=a/b]", "\\r[0]\\g[0]\\p[1] "},
      {"**/@k", "\\r[0]\\g[0]\\p[1] "},
      {"x&y", "\\r[0]\\x&y[2] "},
      {"g[", ""},
      {"g[x]", ""},
      {"g[@]", ""},
      {"g//p", ""},
      {"g/", ""},
      {"@", ""},
      {"@id/g", ""},
  };
  const XML document(kText.c_str(), 1);
  for (const auto& row : rows) {
    std::string matches;
    for (const XMLElement* match : XMLQuery(row.query).Run(*document.GetRootElement())) {
      matches += match->GetElementUniqueString() + " ";
    }
    EXPECT_EQ(matches, row.matches) << row.query;
  }
}

TEST(XmlQuery, ReadsAndSetsValues) {
  XML document(kText.c_str(), 1);
  std::string value;
  EXPECT_TRUE(document.XMLGetValue("g[@id=2]/h/p", value));
  EXPECT_EQ(value, "three");
  EXPECT_TRUE(document.XMLGetValue("**/p/@k", value));
  EXPECT_EQ(value, "a/b");
  EXPECT_FALSE(document.XMLGetValue("g/q", value));
  EXPECT_TRUE(document.XMLSetValue("g/p", "<1>"));
  EXPECT_TRUE(document.XMLSetValue("new/one/@n", "2"));
  EXPECT_TRUE(document.XMLSetValue("new/two", "3"));
  EXPECT_FALSE(document.XMLSetValue("g[7]/p", "4"));
  EXPECT_FALSE(document.XMLSetValue("g[", "4"));
  EXPECT_EQ(document.GetRootElement()->GetChild("g")->GetChild("p")->GetContents()[0]->GetValue(true), "&lt;1&gt;");
  EXPECT_EQ(Dump(document.GetRootElement()->GetChild("new")), "new[one(n=2)[],two[t0:3,],]");
}

TEST(XmlQuery, FollowsPaths) {
  XML document(kText.c_str(), 1);
  XMLElement* root = document.GetRootElement();
  XMLElement* p = root->GetElementInSection("g\\p");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->GetElementFullName(), "\\r\\g\\p");
  EXPECT_EQ(root->GetElementInSection("g\\q\\s"), nullptr);
  EXPECT_EQ(root->GetElementInSection("g\\q\\s", true)->GetElementUniqueString(), "\\r[0]\\g[0]\\q[2]\\s[0]");
  EXPECT_EQ(root->FindElementZ("z", false), nullptr);
  EXPECT_EQ(root->GetElementInSection(""), root);
}

TEST(XmlProfile, ReadsSettings) {
  TempFolder folder;
  const std::string path = folder.Write(
      "s.xml",
      kHead + "<s v=\"top\"><a><b n=\"12x\" f=\"2.5\" t=\"a&amp;b\" big=\"4294967295\" neg=\"-5\"/><c/></a></s>");
  const char* file = path.c_str();
  char text[4];
  EXPECT_EQ(XMLGetString("a\\b", "t", "none", text, sizeof(text), file), 3U);
  EXPECT_STREQ(text, "a&b");
  EXPECT_EQ(XMLGetString("", "v", "none", text, 3, file), 2U);
  EXPECT_STREQ(text, "to");
  EXPECT_EQ(XMLGetString("a\\x", "t", "none", text, sizeof(text), file), 3U);
  EXPECT_STREQ(text, "non");
  EXPECT_EQ(XMLGetInt("a\\b", "n", 1, file), 12);
  EXPECT_EQ(XMLGetInt("a\\b", "neg", 1, file), -5);
  EXPECT_EQ(XMLGetInt("a\\b", "big", 1, file), INT32_MAX);
  EXPECT_EQ(XMLGetInt("a\\b", "missing", 7, file), 7);
  EXPECT_EQ(XMLGetInt("a\\b", "missing", -7, file), INT32_MAX) << "a default goes through an unsigned text";
  EXPECT_EQ(XMLGetFloat("a\\b", "f", 1, file), 2.5F);
  EXPECT_EQ(XMLGetFloat("a\\b", "missing", -0.5F, file), -0.5F);
  std::vector<std::string> names;
  std::vector<std::string> values;
  EXPECT_EQ(XMLGetAllVariables("a\\b", names, values, file), 5U);
  EXPECT_EQ(names[2] + "=" + values[2], "t=a&b");
  EXPECT_EQ(XMLGetAllItems("a", names, file), 2U);
  EXPECT_EQ(names[1], "c");
  EXPECT_EQ(XMLGetAllItems("missing", names, file), 0U);
}

TEST(XmlProfile, WritesSettings) {
  TempFolder folder;
  const std::string path = folder / "s.xml";
  const char* file = path.c_str();
  EXPECT_TRUE(XMLSetString("a\\b", "t", "<&>", file));
  EXPECT_TRUE(XMLSetInt("a\\b", "n", -3, file));
  EXPECT_TRUE(XMLSetFloat("a", "f", 0.5F, file));
  EXPECT_TRUE(XMLRenameElement("a", "b", "c", file));
  EXPECT_FALSE(XMLRenameElement("a", "b", "c", file));
  EXPECT_EQ(Dump(XML(file, 0).GetRootElement()), "xml[a(f=0.500000)[c(t=&lt;&amp;&gt;)(n=-3)[],],]");

  XML document(file, 0);
  EXPECT_TRUE(XMLSetInt("a", "f", 1, nullptr, &document));
  EXPECT_EQ(XMLGetInt("a", "f", 0, file), 1);
  const std::string broken = folder.Write("broken.xml", kHead + "<a><b>");
  EXPECT_FALSE(XMLSetInt("", "n", 1, broken.c_str()));
  EXPECT_EQ(ReadWholeFile(broken), kHead + "<a><b>");
}

}  // namespace
