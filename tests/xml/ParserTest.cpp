#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <random>

#include "tests/support/TempFolder.h"
#include "tests/xml/Dump.h"
#include "tests/xml/ReferenceParser.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\"?>";

struct BodyCase {
  const char* name;
  const char* body;
  const char* tree;
  int status;
};

const BodyCase kBodies[] = {
    {"empty element", "<a/>", "a[]", 0},
    {"no content", "<a></a>", "a[]", 0},
    {"texts around a child", "<a>  x &amp; y  <b/> z </a>", "a[b[],t0:x &amp; y,t1:z,]", 0},
    {"blanks are no text", "<a>\r\n\t <b>\n</b> </a>", "a[b[],]", 0},
    {"other white space is text", "<a>\v</a>", "a[t0:\v,]", 0},
    {"attributes", "<p n=\"1\" \tm=\"two\"/>", "p(n=1)(m=two)[]", 0},
    {"single quotes", "<p n='1'/>", "p[]", 0},
    {"an attribute's name is not trimmed", "<p a =\"1\"/>", "p(a =1)[]", 0},
    {"a value without its first quote", "<p a=1\" b=\"2\"></p>", "p(a=1)(b=2)[]", 0},
    {"a slash in quotes", "<p a=\"x/y\"><q b=\"/\"/></p>", "p(a=x/y)[q(b=/)[],]", 0},
    {"a line break stays in a name", "<a\nb=\"1\"></a>", "a\nb=[]", 0},
    {"a name is stored escaped", "<a&b'c></a>", "a&amp;b&apos;c[]", 0},
    {"a name skips <", "<a<b></a>", "ab[]", 0},
    {"comment and data", "<a><!--c--><![CDATA[<raw>]]></a>", "a[c0:c,d0:<raw>,]", 0},
    {"a comment ends early", "<a><!-- x > y --></a>", "a[t0:y -->,c0: ,]", 0},
    {"short comments", "<a><!-->b<!---->c<?></a>", "a[t0:b,t0:c,c0:,c0:,c0:,]", 0},
    {"an instruction is a comment", "<a><?pi data?></a>", "a[c0: dat,]", 0},
    {"closing tags match by depth", "<a><b></a></b>", "a[b[],]", 0},
    {"a document type is an element", "<!DOCTYPE x><a/>", "none", 2},
    {"not closed", "<a><b>", "none", 2},
    {"closed, then not closed", "<a></a><b>", "a[]", 2},
    {"the latest with an end is the root", "<a></a><b></b><c/>", "b[]", 0},
    {"the first empty one is the root", "<a/><b/>", "a[]", 0},
    {"a tag without an end", "<a/><b", "a[]", 0},
    {"a tag without an end inside", "<a><b</a", "none", 2},
    {"stray closing tags", "</x><a/></y>", "a[]", 0},
    {"comments alone", "<!--x-->", "none", 0},
    {"data outside", "<![CDATA[x]]><a/>", "a[]", 0},
    {"data without an end", "<a><![CDATA[x]></a>", "none", 2},
    {"a slash outside quotes ends the tag for the search", "<a><b x=1/2>t</b></a>", "a[]", 2},
    {"what looks like data from outside",
     "<r><e /<![CDATA[><i></i>]]><x \"/></e><e /<![CDATA[><i></i>]]><x \"/></e></r>",
     "r[e[i[],x[],t1:]]>,],e[i[],x[],t1:]]>,],]", 0},
    {"a quote that hides the slash", "<a><b x=\"/></b>y</a>", "a[b[],t1:y,]", 0},
};

TEST(XmlParser, ReadsBodies) {
  for (const BodyCase& row : kBodies) {
    SCOPED_TRACE(row.name);
    const XML document((kHead + row.body).c_str(), 1);
    const auto [tree, status] = ParseByReference(row.body);
    EXPECT_EQ(Dump(document.GetRootElement()), tree);
    EXPECT_EQ(document.ParseStatus(), status);
    EXPECT_EQ(tree, row.tree);
    EXPECT_EQ(status, row.status);
  }
}

// Documents of pieces that the two rules for the end of a tag read differently, as often as of plain ones.
std::string Generate(std::mt19937& random) {
  static const char* const kPieces[] = {"<a>",
                                        "<b>",
                                        "</a>",
                                        "</b>",
                                        "<c/>",
                                        " t ",
                                        "<d n=\"1\">",
                                        "<e n=\"/\"/>",
                                        "<!--x-->",
                                        "<?p?>",
                                        "<f g=/ h>",
                                        "<i j=\"/>",
                                        "<k/l/>",
                                        "<![CDATA[",
                                        "]]>",
                                        "<",
                                        ">",
                                        "/",
                                        "\"",
                                        "<m /<![CDATA[ >",
                                        "</a>",
                                        "</b>",
                                        "&"};
  const bool plain = random() % 3 == 0;
  std::string text = "<r>";
  for (size_t i = random() % 24; i > 0; --i) text += kPieces[random() % (plain ? 10 : std::size(kPieces))];
  return text + "</r>";
}

TEST(XmlParser, AgreesWithTheRulesAsStated) {
  std::mt19937 random(20240519);
  int parsed = 0;
  for (int i = 0; i < 60000; ++i) {
    const std::string body = Generate(random);
    const XML document((kHead + body).c_str(), 1);
    const auto [tree, status] = ParseByReference(body);
    ASSERT_EQ(Dump(document.GetRootElement()), tree) << body;
    ASSERT_EQ(document.ParseStatus(), status) << body;
    parsed += status == 0;
  }
  EXPECT_GT(parsed, 5000);
}

struct HeadCase {
  const char* name;
  const char* text;
  const char* header;
  const char* root;
  int status;
  bool isDefault;
};

constexpr const char* kDefault = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>";
constexpr const char* kMarked = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>";

TEST(XmlParser, SuppliesHeaderAndRoot) {
  const HeadCase rows[] = {
      {"empty", "", kDefault, "xml", 0, true},
      {"null", nullptr, kDefault, "xml", 0, true},
      {"no declaration", "<a/>", kMarked, "a", 1, false},
      {"no tag", "text", kMarked, "root", 1, true},
      {"declaration alone", " <?xml?> text", " <?xml?>", "root", 1, true},
      {"mark before the declaration", "\xEF\xBB\xBF<?xml?><a/>", "\xEF\xBB\xBF<?xml?>", "a", 0, false},
  };
  for (const HeadCase& row : rows) {
    SCOPED_TRACE(row.name);
    const XML document(row.text, 1);
    EXPECT_EQ(document.GetHeader()->text(), row.header);
    ASSERT_NE(document.GetRootElement(), nullptr);
    EXPECT_EQ(document.GetRootElement()->GetElementName(), row.root);
    EXPECT_EQ(document.ParseStatus(), row.status);
    EXPECT_EQ(document.HasDefaultRoot(), row.isDefault);
  }
}

TEST(XmlParser, ReadsFilesUpToTheirFirstNul) {
  TempFolder folder;
  const XML file(folder.Write("a.xml", kHead + "<a><b/></a>" + std::string("\0<c/>", 5)).c_str(), 0);
  EXPECT_EQ(Dump(file.GetRootElement()), "a[b[],]");
  for (const std::string& path : {folder / "missing.xml", folder.path().string()}) {
    const XML none(path.c_str(), 0);
    EXPECT_EQ(Dump(none.GetRootElement()), "xml[]");
    EXPECT_EQ(none.ParseStatus(), 0);
    EXPECT_TRUE(none.HasDefaultRoot());
  }
}

TEST(XmlParser, KeepsCommentsOutsideTheRoot) {
  const XML document((kHead + "<!--before--><a><!--in--></a><!--after--><b><!--lost-->").c_str(), 1);
  const XMLHeader* header = document.GetHeader();
  ASSERT_EQ(header->GetCommentsNum(), 2U);
  EXPECT_EQ(header->GetComments()[0]->GetValue(), "before");
  EXPECT_EQ(header->GetComments()[0]->GetEP(), 0U);
  EXPECT_EQ(header->GetComments()[1]->GetValue(), "after");
  EXPECT_EQ(header->GetComments()[1]->GetEP(), 1U);
  int position = 0;
  EXPECT_EQ(document.ParseStatus(&position), 2);
  EXPECT_EQ(static_cast<size_t>(position), (kHead + "<!--before--><a><!--in--></a><!--after-->").size());
}

std::string Repeat(const char* piece, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += piece;
  return text;
}

// The processor's seconds that it takes to read a document and its root's text.
double SecondsToRead(const std::string& text) {
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
  {
    const XML document(text.c_str(), 1);
    std::string content;
    if (document.GetRootElement()) document.GetRootElement()->GetContent(content);
  }
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
  return static_cast<double>(after.tv_sec - before.tv_sec) + 1e-9 * static_cast<double>(after.tv_nsec - before.tv_nsec);
}

// Whether a text takes less than `bound` times as long as a shorter one. A busy machine is given several tries; what
// grows with the square of the length fails them all.
bool GrowsLessThan(double bound, const std::string& shorter, const std::string& longer) {
  constexpr double kMeasurable = 0.001;
  constexpr int kTries = 20;
  double fewest = 1e9;
  double fewestOfLonger = 1e9;
  for (int i = 0; i < kTries; ++i) {
    fewest = std::min(fewest, SecondsToRead(shorter));
    fewestOfLonger = std::min(fewestOfLonger, SecondsToRead(longer));
    if (fewestOfLonger < bound * std::max(fewest, kMeasurable)) return true;
  }
  return false;
}

// Eight times the text takes eight times the time, not sixty-four times; what takes the machine's stack does not get
// through at all.
TEST(XmlParser, ReadsPathologicalTextsInTimeWithTheirLength) {
  const struct {
    const char* name;
    const char *before, *again, *between, *andAgain, *after;  // the second and the fourth as often as the size says
  } rows[] = {
      {"nested", "", "<a>", "", "</a>", ""},
      {"unclosed", "", "<a>", "", "", ""},
      {"nested, with a tag read twofold", "<r>", "<a>", "<b c=/ >", "</a>", "</r>"},
      {"nested in what looks like data", "<r><m /<![CDATA[ />", "<a>", "", "</a>", "]]></r>"},
      {"what looks like data, over and over", "<r>", "<m /<![CDATA[ /><a></a>", "", "", "]]></r>"},
      {"data inside what looks like data", "<r>", "<e /<![CDATA[><i></i>", "]]><x \"/>", "</e>", "</r>"},
      {"hidden closing tags", "<r>", "<m /<![CDATA[ /><a>", "]]>", "</a>", "</r>"},
      {"<", "", "<<<<<<<<<<", "", "", ""},
      {"< and /", "<a b=/ >", "</<x/", ">", "</", "</a>"},
      {"& in an element", "<a>", "&&&&&&&&&&", "", "", "</a>"},
      {"quotes", "<a>", "\"\"\"\"\"\"\"\"\"\"", "", "", "</a>"},
      {"quotes in a tag", "<a ", "\"\"\"\"\"\"\"\"\"\"", "", "", "/></a>"},
      {"equals signs", "<a ", "=\"=\"=\"=\"=\"", "", "", "></a>"},
      {"closing tags", "", "</a>", "", "", ""},
  };
  constexpr size_t kSize = 20'000;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto text = [&row](size_t size) {
      return std::string(row.before) + Repeat(row.again, size) + row.between + Repeat(row.andAgain, size) + row.after;
    };
    const auto [tree, status] = ParseByReference(text(7));  // which does take the square of the length
    EXPECT_EQ(Dump(XML((kHead + text(7)).c_str(), 1).GetRootElement()), tree);
    EXPECT_EQ(XML((kHead + text(kSize)).c_str(), 1).ParseStatus(), status);
    EXPECT_TRUE(GrowsLessThan(32, kHead + text(kSize), kHead + text(8 * kSize)));
  }
}

TEST(XmlParser, FindsEveryClosingTagInWhatLooksLikeData) {
  const std::string odd = "<e /<![CDATA[><i></i>]]><x \"/></e>";
  const XML document((kHead + "<r>" + Repeat(odd.c_str(), 400) + "</r>").c_str(), 1);
  EXPECT_EQ(document.ParseStatus(), 0);
  EXPECT_EQ(document.GetRootElement()->GetChildrenNum(), 400U);
}

TEST(XmlHelper, ParsesARunIntoAnElement) {
  XMLElement parent(nullptr, "p");
  parent.AddElement("first");
  const XMLElement* recorded = XMLHelper::ParseElementTree(nullptr, &parent, "x<!--c-->y<b><i/></b><e/>z");
  EXPECT_EQ(Dump(&parent), "p[first[],b[i[],],e[],t1:x,t1:y,t3:z,c1:c,]");
  EXPECT_EQ(recorded, parent.GetChild("b"));
  EXPECT_TRUE(parent.IntegrityTest());
  XMLHelper::AddBlankVariable(&parent, " \t\r\n", 0);
  XMLHelper::AddBlankVariable(&parent, " w &amp; w\n", 0);
  EXPECT_EQ(parent.GetContents()[3]->GetValue(), "w & w");
  EXPECT_EQ(parent.GetContentsNum(), 4U);

  XMLHeader header("h");
  bool unclosed = false;
  const std::unique_ptr<XMLElement> top(
      XMLHelper::ParseElementTree(&header, nullptr, "<!--c--><a><b/></a><x>", &unclosed));
  EXPECT_EQ(Dump(top.get()), "a[b[],]");
  EXPECT_EQ(header.GetCommentsNum(), 1U);
  EXPECT_TRUE(unclosed);
}

TEST(XmlHelper, FindsTheClosingTag) {
  EXPECT_EQ(XMLHelper::FindXMLClose("<a><b></a></b>x"), 14U);
  EXPECT_EQ(XMLHelper::FindXMLClose("<a x=\">\"/></a>"), 14U);
  EXPECT_EQ(XMLHelper::FindXMLClose("<a/><b></b>"), 11U);
  EXPECT_EQ(XMLHelper::FindXMLClose("<a></b"), std::string_view::npos);
}

}  // namespace
