#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support/TempFolder.h"
#include "tests/xml/Dump.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>";

TEST(XmlWriter, WritesEveryKindOfNodeInItsPlace) {
  XML document(
      (kHead + "<!--0--><r n=\"1\" m=\"&amp;\">x &lt; y<a/><!--c--><b>t<![CDATA[<d>]]></b>z</r><!--1-->").c_str(), 1);
  std::string text;
  document.Export(text);
  EXPECT_EQ(text,
            kHead +
                "\r\n<!--0-->\r\n<r n=\"1\" m=\"&amp;\">\r\n\tx &lt; y\r\n\t<a/>\r\n\t<!--c-->\r\n\t<b>\r\n\t\tt\r\n"
                "\t\t<![CDATA[<d>]]>\r\n\t</b>\r\n\tz\r\n</r>\r\n<!--1-->\r\n");
  document.SetExportFormatting(true, 2);
  document.GetRootElement()->GetChild("b")->SetExportFormatting(false, 1);
  text.clear();
  document.GetRootElement()->Export(text, 1);
  EXPECT_EQ(text,
            "  <r n=\"1\" m=\"&amp;\">\r\n    x &lt; y\r\n    <a/>\r\n    <!--c-->\r\n\t\t<b>\r\n\t\t\tt\r\n"
            "\t\t\t<![CDATA[<d>]]>\r\n\t\t</b>\r\n    z\r\n  </r>\r\n");
}

// Documents of plain names; texts of one kind are kept apart by something that stays in the tree.
class Generator {
 public:
  explicit Generator(unsigned seed) : m_random(seed) {}
  std::string Document() {
    std::string text = kHead;
    if (Pick(3) == 0) text += "<!--before-->";
    text += Element(0);
    if (Pick(3) == 0) text += "\n<!--after--><?and this?>";
    return text;
  }

 private:
  unsigned Pick(unsigned count) { return static_cast<unsigned>(m_random() % count); }
  std::string Name() { return std::string(1, static_cast<char>('a' + Pick(26))) + (Pick(2) ? "-n.1" : ""); }
  std::string Blank() { return std::string(Pick(3), " \n\t"[Pick(3)]); }
  std::string Text() {
    static const char* const kTexts[] = {"x", "a &amp; b", "two\nlines", "]]>", "1 > 0", "&#65;\xC3\xA9", "\"'/", "\v"};
    return kTexts[Pick(std::size(kTexts))];
  }
  std::string Element(int deep) {
    const std::string name = Name();
    std::string text = "<" + name;
    for (unsigned i = Pick(4); i > 0; --i) text += " " + Name() + "=\"" + (Pick(2) ? "v/w" : "'<") + "\"";
    if (Pick(4) == 0) return text + "/>";
    text += ">" + Blank();
    bool apart = true;
    for (unsigned i = Pick(8); i > 0; --i) {
      const unsigned kind = Pick(deep < 6 ? 6 : 3);
      if (kind == 0 && apart) text += Text();
      if (kind == 1) text += "<!--" + std::string(Pick(2), 'c') + "-->";
      if (kind == 2) text += "<![CDATA[<x>& " + Text().substr(0, 2) + "]]>";
      if (kind >= 3) text += Element(deep + 1);
      apart = kind != 0;
      text += Blank();
    }
    return text + "</" + name + ">";
  }
  std::mt19937 m_random;
};

TEST(XmlWriter, WhatIsWrittenReadsTheSame) {
  Generator generator(7);
  size_t elements = 0;
  for (int i = 0; i < 500; ++i) {
    const std::string text = generator.Document();
    const XML document(text.c_str(), 1);
    ASSERT_EQ(document.ParseStatus(), 0) << text;
    for (const bool formatting : {true, false}) {
      std::string written;
      document.Export(written, formatting);
      const XML again(written.c_str(), 1);
      ASSERT_TRUE(again.Compare(document)) << text << "\n--- became ---\n" << written;
      ASSERT_TRUE(again.IntegrityTest());
    }
    elements += 1 + document.GetRootElement()->GetAllChildrenNum();
  }
  EXPECT_GT(elements, 2000U);
}

TEST(XmlWriter, WritesToAStreamWhatItWritesToAText) {
  const XML document((kHead + "<!--0--><r>x<a/>y</r><!--1-->").c_str(), 1);
  std::string text;
  document.Export(text);
  TempFolder folder;
  FILE* stream = fopen((folder / "a.xml").c_str(), "wb");
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(document.Export(stream));
  EXPECT_EQ(fclose(stream), 0);
  EXPECT_EQ(ReadWholeFile(folder / "a.xml"), text);

  stream = fopen("/dev/full", "wb");
  ASSERT_NE(stream, nullptr);
  setvbuf(stream, nullptr, _IONBF, 0);
  EXPECT_FALSE(document.Export(stream)) << "a full disk";
  fclose(stream);
}

std::string Chain(size_t length) {
  std::string text = kHead;
  for (size_t i = 0; i < length; ++i) text += "<a>";
  for (size_t i = 0; i < length; ++i) text += "</a>";
  return text;
}

TEST(XmlWriter, IndentsOncePerLevelAtAnyDepth) {
  constexpr size_t kDeep = 3000;
  const XML document(Chain(kDeep).c_str(), 1);
  std::string expected = kHead + "\r\n";
  for (size_t i = 0; i < kDeep - 1; ++i) expected += std::string(i, '\t') + "<a>\r\n";
  expected += std::string(kDeep - 1, '\t') + "<a/>\r\n";
  for (size_t i = kDeep - 1; i-- > 0;) expected += std::string(i, '\t') + "</a>\r\n";
  std::string written;
  EXPECT_TRUE(document.Export(written));
  EXPECT_TRUE(written == expected) << "of " << written.size() << " bytes";
  const TempFolder folder;
  FILE* stream = fopen((folder / "a.xml").c_str(), "wb");
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(document.Export(stream));
  fclose(stream);
  EXPECT_TRUE(ReadWholeFile(folder / "a.xml") == expected);
}

// Half a million levels take 250 GB of tabs: that is told at once, and nothing that is there is lost.
TEST(XmlWriter, DoesNotBeginWhatNoDocumentCanHold) {
  const TempFolder folder;
  const std::string path = folder.Write("a.xml", Chain(500'000));
  XML document(path.c_str(), 0);
  std::string written = "before";
  EXPECT_FALSE(document.Export(written));
  EXPECT_FALSE(document.Save());
  EXPECT_FALSE(document.Export(stdout));
  EXPECT_FALSE(document.GetRootElement()->Export(stdout));
  EXPECT_EQ(written, "before");
  EXPECT_EQ(ReadWholeFile(path), Chain(500'000));
  EXPECT_TRUE(document.Save(nullptr, false));
  EXPECT_TRUE(XML(path.c_str(), 0).Compare(document));

  XML wide((kHead + "<a><b/></a>").c_str(), 1);
  wide.SetExportFormatting(true, UINT32_MAX);
  EXPECT_FALSE(wide.Export(written));
  EXPECT_FALSE(wide.GetRootElement()->Export(written, UINT32_MAX));
  EXPECT_EQ(written, "before");
}

TEST(XmlSave, KnowsItsModes) {
  TempFolder folder;
  const std::string path =
      folder.Write("a.xml", "<?xml version=\"1.0\" encoding=\"latin1\"?><a>\xC3\xA9\xF0\x9F\x98\x80\xFF</a>");
  XML document(path.c_str(), 0);
  EXPECT_FALSE(document.Save((folder / "b.xml").c_str(), true, 2));
  EXPECT_FALSE(document.Save((folder / "missing/b.xml").c_str()));
  EXPECT_FALSE(XML("<a/>", 1).Save());
  EXPECT_FALSE(XML(folder.Write("plain.xml", "<a/>").c_str(), 0).Save()) << "a file without a declaration is not kept";

  EXPECT_TRUE(document.Save());
  EXPECT_EQ(ReadWholeFile(path), kHead + "\r\n<a>\r\n\t\xC3\xA9\xF0\x9F\x98\x80\xFF\r\n</a>\r\n");

  EXPECT_TRUE(document.Save((folder / "wide.xml").c_str(), false, 3));
  std::u16string wide =
      u"\uFEFF<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"yes\" "
      u"?>\r\n<a>\r\n\u00E9\U0001F600\uFFFD\r\n</a>\r\n";
  std::string bytes;
  for (const char16_t unit : wide) bytes.append({static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)});
  EXPECT_EQ(ReadWholeFile(folder / "wide.xml"), bytes);

  FILE* stream = fopen((folder / "stream.xml").c_str(), "wb");
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(document.Save(stream, false, 1));
  EXPECT_TRUE(document.GetRootElement()->Export(stream, 1));
  fclose(stream);
  EXPECT_TRUE(ReadWholeFile(folder / "stream.xml")
                  .ends_with("</a>\r\n\t<a>\r\n\t\t\xC3\xA9\xF0\x9F\x98\x80\xFF\r\n\t</a>\r\n"));
}

TEST(XmlSave, TellsWhatAFullDiskDidNotTake) {
  for (const size_t size : {0, 1'000'000}) {
    XML document((kHead + "<a>" + std::string(size, 'x') + "</a>").c_str(), 1);
    EXPECT_FALSE(document.Save("/dev/full")) << size;
    EXPECT_FALSE(document.Save("/dev/full", true, 3)) << size;
    FILE* stream = fopen("/dev/full", "wb");
    ASSERT_NE(stream, nullptr);
    EXPECT_FALSE(document.Save(stream, true, 1)) << size;
    fclose(stream);
  }
}

TEST(XmlSave, SavesOnClose) {
  TempFolder folder;
  const std::string path = folder.Write("a.xml", kHead + "<a/>");
  {
    XML document(path.c_str(), 0);
    document.SaveOnClose(true);
    document.GetRootElement()->AddVariable("n", "1");
    document.LoadText((kHead + "<b/>").c_str());  // has no file to go to
  }
  EXPECT_EQ(Dump(XML(path.c_str(), 0).GetRootElement()), "a(n=1)[]");
}

// Every bit turned over, and a byte in front.
class Inverted : public XMLTransform {
 public:
  size_t Encode(const char* in, size_t size, char* out, size_t outSize, void*) override {
    EXPECT_EQ(outSize, size + 100);
    *out = '!';
    std::transform(in, in + size, out + 1, [](char c) { return static_cast<char>(~c); });
    return size + 1;
  }
  size_t Decode(const char* in, size_t size, char* out, size_t, void* data) override {
    ++*static_cast<int*>(data);
    std::transform(in + 1, in + size, out, [](char c) { return static_cast<char>(~c); });
    return size - 1;
  }
};

TEST(XmlSave, GoesThroughATransform) {
  TempFolder folder;
  const std::string path = folder / "a.xml";
  Inverted inverted;
  int calls = 0;
  EXPECT_TRUE(XML((kHead + "<a>x</a>").c_str(), 1).Save(path.c_str(), true, 0, &inverted));
  EXPECT_TRUE(ReadWholeFile(path).starts_with("!\xC3"));
  XML document(path.c_str(), 0, &inverted, &calls);
  EXPECT_EQ(Dump(document.GetRootElement()), "a[t0:x,]");
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(document.Save()) << "not over the encoded file";
}

}  // namespace
