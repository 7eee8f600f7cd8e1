#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "tests/support/TempFolder.h"
#include "tests/xml/Dump.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\"?>";

XML Parsed(const std::string& body) {
  return XML((kHead + body).c_str(), 1);
}

TEST(XmlEdit, ChangesChildren) {
  XML document((kHead + "<r>t<a/><b/>u<c/></r>").c_str(), 1);
  XMLElement* root = document.GetRootElement();
  EXPECT_EQ(root->InsertElement(1, new XMLElement(nullptr, "<n k=\"v\">")), 4U);
  EXPECT_EQ(Dump(root), "r[a[],n(k=v)[],b[],c[],t0:t,t3:u,]");
  EXPECT_TRUE(root->MoveElement(0, 3));
  EXPECT_TRUE(root->MoveElement(1, 0));
  EXPECT_FALSE(root->MoveElement(0, 4));
  EXPECT_EQ(Dump(root), "r[b[],n(k=v)[],c[],a[],t0:t,t3:u,]");
  EXPECT_TRUE(root->RemoveElement(1));
  EXPECT_FALSE(root->RemoveElement(3));
  EXPECT_EQ(Dump(root), "r[b[],c[],a[],t0:t,t2:u,]");
  EXPECT_EQ(root->AddElement("x&y")->GetElementName(), "x&y");
  EXPECT_EQ(root->AddElement(new XMLElement(root, "a name=\"a<b&c\"", 1)), 5U);
  EXPECT_EQ(root->GetChildren()[4]->GetElementName(), "a name=\"a<b&c\"");
  EXPECT_EQ(root->GetChildren()[4]->GetElementName(true), "a name=&quot;a&lt;b&amp;c&quot;");
  EXPECT_EQ(root->GetChildren()[4]->GetType(), 1);
  EXPECT_TRUE(root->IntegrityTest());
  root->RemoveAllElements();
  EXPECT_EQ(Dump(root), "r[t0:t,t0:u,]");
}

TEST(XmlEdit, AnElementHasOnePlace) {
  XML document((kHead + "<r><a><b/></a><c/></r>").c_str(), 1);
  XMLElement* root = document.GetRootElement();
  XMLElement* a = root->GetChild("a");
  root->GetChild("c")->AddElement(a->GetChild("b"));
  EXPECT_EQ(Dump(root), "r[a[],c[b[],],]");
  XMLElement* b = root->GetChild("c")->GetChild("b");
  b->AddElement(root);
  b->AddElement(b);
  b->AddElement(root->GetChild("c"));
  b->AddElement(static_cast<XMLElement*>(nullptr));
  XML other;
  EXPECT_EQ(other.SetRootElement(root), other.GetRootElement());
  EXPECT_EQ(Dump(root), "r[a[],c[b[],],]");
  EXPECT_TRUE(root->IntegrityTest());
  EXPECT_EQ(Dump(other.SetRootElement(a)), "a[]");
  EXPECT_EQ(Dump(root), "r[c[b[],],]");
}

TEST(XmlEdit, TakesTextsOfItsOwn) {
  XML document = Parsed("<r><long-enough-for-the-heap/></r>");
  XMLElement* root = document.GetRootElement();
  XMLElement* made = root->AddElement("made-and-long-enough");
  made->Reparse(made->name());
  EXPECT_EQ(Dump(made), "made-and-long-enough[]");
  made->AddVariable("key", "a-value/that is long enough", true);
  made->Reparse(made->GetVariables()[0]->value());
  EXPECT_EQ(Dump(made), "a-value[]");
  root->Reparse(root->GetChildren()[0]->name());
  EXPECT_EQ(Dump(root), "long-enough-for-the-heap[]");

  document = Parsed("<r/>");
  document.GetRootElement()->AddVariable("text", "<?x?><a>a text that the document owns</a>", true);
  document.LoadText(document.GetRootElement()->GetVariables()[0]->value().data());
  EXPECT_EQ(Dump(document.GetRootElement()), "a[t0:a text that the document owns,]");

  const TempFolder folder;
  const std::string path = folder.Write("a-file-with-a-long-name.xml", kHead + "<b/>");
  document.GetRootElement()->AddVariable("file", path, true);
  document.Load(document.GetRootElement()->GetVariables()[0]->value().data(), 0);
  EXPECT_EQ(Dump(document.GetRootElement()), "b[]");
  EXPECT_TRUE(document.Save());
}

TEST(XmlEdit, ACommentAndAHeaderHaveOneOwner) {
  XML document = Parsed("<!--0--><r><!--c--></r>");
  XML other = Parsed("<s/>");
  XMLHeader* header = document.GetHeader();
  EXPECT_EQ(header->AddComment(document.GetRootElement()->GetComments()[0]), 1U) << "a tree's";
  EXPECT_EQ(header->AddComment(header->GetComments()[0]), 1U) << "its own";
  EXPECT_EQ(other.GetHeader()->AddComment(header->GetComments()[0]), 0U) << "another header's";
  EXPECT_EQ(document.GetRootElement()->AddComment(header->GetComments()[0]), 1U) << "a header's into a tree";
  EXPECT_EQ(document.SetHeader(header), header);
  EXPECT_NE(other.SetHeader(header), header) << "another document's";
  EXPECT_EQ(other.SetHeader(nullptr), other.GetHeader());
  auto* made = new XMLHeader("<?made?>");
  EXPECT_EQ(other.SetHeader(made), made);
  EXPECT_EQ(document.SetHeader(made), header);
}

// The address sanitizer sees whether anything is used after its document, freed twice or forgotten.
TEST(XmlEdit, WhatIsDetachedOutlivesTheDocument) {
  XMLElement* kept = nullptr;
  XMLElement* inner = nullptr;
  XMLVariable* variable = nullptr;
  {
    XML document((kHead + "<r><k n=\"1\" m=\"2\">text<i>inner<d/></i></k><l/></r>").c_str(), 1);
    XMLElement* root = document.GetRootElement();
    root->GetChild("k")->GetContents()[0]->SetValue("a < b");
    EXPECT_TRUE(root->RemoveElementAndKeep(0, &kept));
    EXPECT_FALSE(root->RemoveElementAndKeep(1, &kept));
    EXPECT_TRUE(kept->RemoveVariableAndKeep(0, &variable));
  }
  EXPECT_EQ(kept->GetParent(), nullptr);
  EXPECT_EQ(Dump(kept), "k(m=2)[i[d[],t0:inner,],t0:a &lt; b,]");
  EXPECT_TRUE(kept->RemoveElementAndKeep(0, &inner));
  delete kept;
  EXPECT_EQ(Dump(inner), "i[d[],t0:inner,]");
  // Parsed, detached and made elements together in a third document.
  XML third;
  third.GetRootElement()->AddElement(inner);
  XMLElement* made = third.GetRootElement()->AddElement("made");
  made->AddElement(inner->GetChild("d"));
  EXPECT_EQ(made->AddVariable(variable), 1U);
  EXPECT_EQ(made->AddVariable(variable), 1U);
  XMLElement* root = third.RemoveRootElementAndKeep();
  EXPECT_EQ(third.GetRootElement(), nullptr);
  EXPECT_EQ(Dump(root), "xml[i[t0:inner,],made(n=1)[d[],],]");
  third.SetRootElement(root->Copy());
  delete root;
  EXPECT_EQ(Dump(third.GetRootElement()), "xml[i[t0:inner,],made(n=1)[d[],],]");
}

TEST(XmlEdit, CopiesAreDeepAndEqual) {
  XML document = Parsed("<r><!--c-->x<a n=\"1\"><![CDATA[d]]></a>y</r>");
  document.GetRootElement()->SetElementParam(7);
  const XML copy(document);
  EXPECT_TRUE(copy.Compare(document));
  EXPECT_TRUE(copy.IntegrityTest());
  EXPECT_EQ(copy.GetRootElement()->GetElementParam(), 7U);
  XMLElement* a = document.GetRootElement()->GetChild("a");
  const struct {
    const char* name;
    std::function<void()> edit;
  } rows[] = {{"attribute", [&] { a->FindVariableZ("n")->SetValueInt(2); }},
              {"data", [&] { a->GetCDatas()[0]->SetCData("e"); }},
              {"comment", [&] { document.GetRootElement()->GetComments()[0]->SetComment("e"); }},
              {"text", [&] { document.GetRootElement()->GetContents()[1]->SetValue("z"); }},
              {"position", [&] { document.GetRootElement()->GetContents()[0]->SetParent(a->GetParent(), 1); }},
              {"name", [&] { a->SetElementName("b"); }},
              {"child", [&] { a->AddElement("n"); }},
              {"outer comment", [&] { document.GetHeader()->AddComment(new XMLComment(nullptr, 1, "o")); }}};
  for (const auto& row : rows) {
    document = copy;
    a = document.GetRootElement()->GetChild("a");
    ASSERT_TRUE(document.Compare(copy)) << row.name;
    row.edit();
    EXPECT_FALSE(document.Compare(copy)) << row.name;
  }
}

TEST(XmlEdit, ChangesAttributes) {
  XML document = Parsed("<r a=\"1\" b=\"2\"/>");
  XMLElement* root = document.GetRootElement();
  root->AddVariable("c", "<&>");
  EXPECT_EQ(root->FindVariableZ("d", "new")->GetValue(), "new");
  EXPECT_EQ(root->FindVariableZ("a", "ignored")->GetValueInt(), 1);
  EXPECT_TRUE(root->RemoveVariable(1));
  EXPECT_FALSE(root->RemoveVariable(3));
  EXPECT_EQ(Dump(root), "r(a=1)(c=&lt;&amp;&gt;)(d=new)[]");
  root->SortVariables([](const XMLVariable* a, const XMLVariable* b) { return XMLVariablefcmp(b, a); });
  EXPECT_EQ(Dump(root), "r(d=new)(c=&lt;&amp;&gt;)(a=1)[]");
  const std::unique_ptr<XMLVariable> copy(root->GetVariables()[1]->Duplicate());
  EXPECT_TRUE(copy->Compare(*root->GetVariables()[1]));
  EXPECT_EQ(copy->GetOwnerElement(), nullptr);
  EXPECT_EQ(copy->GetValue(), "<&>");
  EXPECT_EQ(copy->GetValue(true), "&lt;&amp;&gt;");
  copy->Clear();
  EXPECT_EQ(copy->GetName() + copy->GetValue(), "");
  root->Reparse("s e=\"5\"");
  EXPECT_EQ(Dump(root), "s(e=5)[]");
}

TEST(XmlEdit, ChangesTexts) {
  XML document = Parsed("<r>a<!--b--><![CDATA[c]]><x/>d</r>");
  XMLElement* root = document.GetRootElement();
  EXPECT_EQ(root->AddContent("<e>", 0)->GetValue(true), "&lt;e&gt;");
  EXPECT_EQ(root->AddCData("f", 9)->GetEP(), 1U);
  root->AddComment("g", 0);
  std::string text;
  root->Export(text, 0, false);
  EXPECT_EQ(text,
            "<r>\r\na\r\n<!--b-->\r\n<![CDATA[c]]>\r\n&lt;e&gt;\r\n<!--g-->\r\n<x/>\r\nd\r\n<![CDATA[f]]>\r\n</r>\r\n");
  EXPECT_TRUE(root->RemoveContent(0));
  EXPECT_TRUE(root->RemoveComment(0));
  EXPECT_TRUE(root->RemoveCData(0));
  EXPECT_FALSE(root->RemoveCData(1));
  EXPECT_EQ(Dump(root), "r[x[],t1:d,t0:&lt;e&gt;,c0:g,d1:f,]");
  root->RemoveAllContents();
  root->RemoveAllComments();
  root->RemoveAllCDatas();
  EXPECT_EQ(Dump(root), "r[x[],]");
}

TEST(XmlEdit, IntegrityTestFindsWhatIsBroken) {
  const char* const body = "<r n=\"1\">t<!--c--><![CDATA[d]]><a/><b><x/></b></r>";
  const struct {
    const char* name;
    std::function<void(XMLElement*)> breakIt;
  } rows[] = {
      {"a child's parent", [](XMLElement* r) { r->GetChild("b")->GetChild("x")->SetParent(r); }},
      {"no parent", [](XMLElement* r) { r->GetChild("a")->SetParent(nullptr); }},
      {"an attribute's owner", [](XMLElement* r) { r->GetVariables()[0]->SetOwnerElement(r->GetChild("a")); }},
      {"a text's owner", [](XMLElement* r) { r->GetContents()[0]->SetParent(nullptr, 0); }},
      {"a text's position", [](XMLElement* r) { r->GetContents()[0]->SetParent(r, 3); }},
      {"a comment's position", [](XMLElement* r) { r->GetComments()[0]->SetParent(r, 3); }},
      {"a data section's owner", [](XMLElement* r) { r->GetCDatas()[0]->SetParent(r->GetChild("b"), 0); }},
  };
  for (const auto& row : rows) {
    XML document = Parsed(body);
    EXPECT_TRUE(document.IntegrityTest());
    row.breakIt(document.GetRootElement());
    EXPECT_FALSE(document.IntegrityTest()) << row.name;
  }
  XML document = Parsed(body);
  XMLElement** children = document.GetRootElement()->GetChildren();
  XMLElement* const a = std::exchange(children[0], children[1]);
  EXPECT_FALSE(document.IntegrityTest()) << "one child twice";
  children[0] = a;
  EXPECT_TRUE(document.IntegrityTest());
}

// Parsed, made and detached elements change places between two documents; the address sanitizer watches.
TEST(XmlEdit, AnyRunOfEditsKeepsTheInvariants) {
  std::mt19937 random(11);
  const auto pick = [&random](size_t count) { return static_cast<unsigned>(random() % count); };
  for (int run = 0; run < 200; ++run) {
    XML documents[] = {Parsed("<r>t<a n=\"1\"><b/>u<c>v</c></a><!--w--><d/></r>"), Parsed("<s><e>x<f/></e></s>")};
    std::vector<std::unique_ptr<XMLElement>> kept;
    for (int edit = 0; edit < 40; ++edit) {
      const auto any = [&] {
        XMLElement* root = documents[pick(2)].GetRootElement();
        std::vector<XMLElement*> all = root->GetAllChildren();
        all.push_back(root);
        return all[pick(all.size())];
      };
      XMLElement* element = any();
      XMLElement* taken = nullptr;
      const unsigned index = pick(3);
      switch (pick(8)) {
        case 0:
          element->AddElement("new")->AddContent("text", 0);
          break;
        case 1:
          element->InsertElement(index, any());
          break;
        case 2:
          if (element->RemoveElementAndKeep(index, &taken)) kept.emplace_back(taken);
          break;
        case 3:
          if (!kept.empty()) element->InsertElement(index, kept.back().release());
          if (!kept.empty()) kept.pop_back();
          break;
        case 4:
          element->MoveElement(index, pick(3));
          break;
        case 5:
          element->RemoveElement(index);
          break;
        case 6:
          element->FindVariableZ("k")->SetValueInt(edit);
          break;
        default:
          element->AddComment("c", index);
      }
    }
    for (const XML& document : documents) {
      ASSERT_TRUE(document.IntegrityTest()) << run;
      ASSERT_TRUE(XML(document).Compare(document)) << run;
    }
  }
}

TEST(XmlEdit, DeepTreesCostNoStack) {
  constexpr int kDeep = 300000;
  XML document;
  XMLElement* element = document.GetRootElement();
  for (int i = 0; i < kDeep; ++i) element = element->AddElement("e");
  EXPECT_EQ(element->GetDeep(), static_cast<unsigned>(kDeep));
  const XML copy(document);
  EXPECT_TRUE(copy.Compare(document));
  EXPECT_TRUE(copy.IntegrityTest());
  EXPECT_EQ(copy.GetRootElement()->GetAllChildrenNum(), static_cast<unsigned>(kDeep));
}

TEST(XmlHousekeeping, SortsCountsAndShrinks) {
  XML document = Parsed("<r><c/><a k=\"1\"/><b/><a k=\"2\"/></r>");
  XMLElement* root = document.GetRootElement();
  root->SortElements(XMLElementfcmp);
  EXPECT_EQ(Dump(root), "r[a(k=1)[],a(k=2)[],b[],c[],]");
  const size_t parsed = document.MemoryUsage();
  root->SpaceForElements(1000);
  root->SpaceForVariables(10);
  root->SpaceForContents(10);
  root->SpaceForComments(10);
  root->SpaceForCDatas(10);
  const size_t spacious = document.MemoryUsage();
  EXPECT_GT(spacious, parsed + 1000 * sizeof(void*));
  document.CompressMemory();
  EXPECT_LT(document.MemoryUsage(), spacious - 1000 * sizeof(void*));
  EXPECT_EQ(Dump(root), "r[a(k=1)[],a(k=2)[],b[],c[],]");
}

TEST(XmlHousekeeping, UnloadsAndReloadsElements) {
  TempFolder folder;
  const std::string side = folder / "side.xml";
  XML document = Parsed("<r><a/><b n=\"1\">x<!--y--><c>z</c><![CDATA[w]]></b></r>");
  const XML before(document);
  XMLElement* root = document.GetRootElement();
  EXPECT_TRUE(root->UnloadElement(1, side.c_str()));
  EXPECT_EQ(Dump(root), "r[a[],b(n=1)[],]");
  EXPECT_FALSE(root->UnloadElement(1, side.c_str()));
  EXPECT_FALSE(root->UnloadElement(0, (folder / "missing/side.xml").c_str()));
  EXPECT_TRUE(root->ReloadElement(1));
  EXPECT_TRUE(document.Compare(before));
  EXPECT_TRUE(document.IntegrityTest());
  EXPECT_FALSE(root->ReloadElement(1));
  root->GetChildren()[1]->AddContent(side, 0);
  EXPECT_TRUE(root->UnloadElement(1, root->GetChildren()[1]->GetContents()[1]->text().data()));
  EXPECT_TRUE(root->DeleteUnloadedElementFile(1));
  EXPECT_FALSE(std::filesystem::exists(side));
  EXPECT_FALSE(root->ReloadElement(1));
}

}  // namespace
