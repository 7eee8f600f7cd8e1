#include <gtest/gtest.h>

#include "Common/Xml.h"

namespace {

// Every form with a buffer: how much it would write, what it writes into little room, and nothing without room.
template <class Read>
void ExpectBounded(const char* name, const std::string& whole, Read read) {
  SCOPED_TRACE(name);
  EXPECT_EQ(read(nullptr, size_t{0}), whole.size());
  char buffer[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(read(buffer, size_t{3}), whole.size());
  EXPECT_EQ(std::string(buffer), whole.substr(0, 2));
  EXPECT_EQ(buffer[3], '#');
  Z<char> fitting(whole.size() + 10);
  read(fitting, fitting.size());
  EXPECT_EQ(std::string(fitting), whole);
}

TEST(XmlNodes, NeverWritePastABuffer) {
  XMLElement element;
  element.SetElementName("na&me");
  const XMLVariable variable("k<ey", "val\"ue");
  const XMLContent content(nullptr, 0, "te>xt");
  const XMLComment comment(nullptr, 0, "com&ment");
  const XMLCData cdata(nullptr, 0, "da<ta");

  const auto name = [&](char* b, size_t s) { return element.GetElementName(b, s); };
  const auto rawName = [&](char* b, size_t s) { return element.GetElementName(b, s, true); };
  const auto key = [&](char* b, size_t s) { return variable.GetName(b, s); };
  const auto value = [&](char* b, size_t s) { return variable.GetValue(b, s); };
  const auto rawValue = [&](char* b, size_t s) { return variable.GetValue(b, s, true); };
  const auto text = [&](char* b, size_t s) { return content.GetValue(b, s); };
  const auto rawText = [&](char* b, size_t s) { return content.GetValue(b, s, true); };
  ExpectBounded("name", "na&me", name);
  ExpectBounded("raw name", "na&amp;me", rawName);
  ExpectBounded("key", "k<ey", key);
  ExpectBounded("value", "val\"ue", value);
  ExpectBounded("raw value", "val&quot;ue", rawValue);
  ExpectBounded("text", "te>xt", text);
  ExpectBounded("raw text", "te&gt;xt", rawText);
  ExpectBounded("comment", "com&ment", [&](char* b, size_t s) { return comment.GetValue(b, s); });
  ExpectBounded("data", "da<ta", [&](char* b, size_t s) { return cdata.GetValue(b, s); });
  EXPECT_EQ(std::string(content) + std::string(comment) + std::string(cdata), "te>xtcom&mentda<ta");
}

TEST(XmlNodes, CompareTextAndPlace) {
  const XMLContent content(nullptr, 1, "x");
  EXPECT_TRUE(content.Compare(XMLContent(nullptr, 1, "x", true)));
  EXPECT_FALSE(content.Compare(XMLContent(nullptr, 0, "x")));
  EXPECT_FALSE(content.Compare(XMLContent(nullptr, 1, "y")));
  const XMLVariable variable("n", "&");
  EXPECT_TRUE(variable.Compare(XMLVariable("n", "&amp;", true)));
  EXPECT_FALSE(variable.Compare(XMLVariable("n", "&", true)));
  XMLElement owner;
  owner.AddVariable(variable.Duplicate());
  const std::unique_ptr<XMLVariable> copy(owner.GetVariables()[0]->Copy());
  EXPECT_EQ(copy->GetOwnerElement(), &owner);
  EXPECT_EQ(owner.GetVariableNum(), 1U);
}

TEST(XmlNodes, ZIsFilledWithZero) {
  Z<int> numbers(1000);
  for (size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(numbers[i], 0);
  numbers[0] = 1;
  Z<int> other(1);
  other = std::move(numbers);
  EXPECT_EQ(other[0], 1);
  EXPECT_EQ(other.size(), 1000U);
}

TEST(XmlHeader, RewritesItsDeclaration) {
  XML document("<!--x--><a/>", 1);
  document.GetHeader()->SetEncoding("latin1");
  EXPECT_EQ(document.GetHeader()->text(), "<?xml version=\"1.0\" encoding=\"latin1\" standalone=\"yes\" ?>");
  document.SetHeader(new XMLHeader("<?other?>"));
  document.SetHeader(nullptr);
  EXPECT_EQ(document.GetHeader()->text(), "<?other?>");
  EXPECT_EQ(document.GetHeader()->GetCommentsNum(), 0U);
}

}  // namespace
