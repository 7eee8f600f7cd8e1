// Which groups and packages a pen gets, and in which order.
#include <gtest/gtest.h>

#include "installer/bundle/Bundle.h"
#include "tests/support/TestBundle.h"

namespace {

TestPackage Package(const std::string& name, const std::string& type, const std::string& order, size_t size) {
  return {.name = name, .fileName = name, .fileType = type, .transferOrder = order, .content = std::string(size, 'x')};
}

std::string Names(const std::vector<BundlePackage*>& packages) {
  std::string names;
  for (const BundlePackage* package : packages) names += package->name;
  return names;
}

class Selection : public testing::Test {
 protected:
  Selection() : m_file(Options()) { EXPECT_EQ(m_bundle.Load(m_file.path().c_str()), insSuccess); }

  static TestBundleOptions Options() {
    TestGroup apps{.name = "APPS", .penTypes = "1,2"};
    apps.packages = {Package("f", "Firmware", "4", 1000), Package("a", "PenApp", "2", 100)};
    TestGroup any{.name = "Any", .penTypes = "0", .folder = "Any"};
    any.packages = {Package("u", "Other", "1", 10), Package("p", "PaperProduct", "3", 1)};
    TestGroup none{.name = "None", .penTypes = "", .folder = "None"};
    none.packages = {Package("n", "PenApp", "9", 5)};
    TestGroup empty{.name = "Empty", .penTypes = "7", .folder = "Empty"};
    empty.packages = {Package("e", "PenApp", "8", 0)};
    return {.groups = {apps, any, none, empty}};
  }

  TestBundle m_file;
  CBundle m_bundle;
};

}  // namespace

TEST_F(Selection, TakesPackagesByPenTypeGroupAndKind) {
  const struct {
    const char* name;
    int32_t penType;
    const char* group;
    bool firmware;
    bool others;
    const char* packages;
    uint64_t size;
  } rows[] = {
      {"no filter", 0, "", true, true, "uapfen", 1116},
      {"a type that is listed", 2, "", true, true, "uapf", 1111},
      {"a type that is not", 3, "", true, true, "up", 11},
      {"firmware only", 1, "", true, false, "f", 1000},
      {"no firmware", 1, "", false, true, "uap", 111},
      {"nothing", 1, "", false, false, "", 0},
      {"a group in other letters", 1, "apps", true, true, "af", 1100},
      {"a group for no pen type", 0, "none", true, true, "n", 5},
      {"a group that another pen type has", 3, "apps", true, true, "", 0},
      {"no such group", 0, "app", true, true, "", 0},
  };
  for (const auto& row : rows) {
    std::vector<BundlePackage*> packages(1);
    uint64_t size = 77;
    m_bundle.GetPenPackages(row.penType, row.group, packages, &size, row.firmware, row.others);
    EXPECT_EQ(Names(packages), row.packages) << row.name;
    EXPECT_EQ(size, row.size) << row.name;
    m_bundle.GetPenPackages(row.penType, row.group, packages, nullptr, row.firmware, row.others);
    EXPECT_EQ(Names(packages), row.packages) << row.name;
  }
}

TEST_F(Selection, TakesPackagesOfNoPenKind) {
  std::vector<BundlePackage*> packages;
  uint64_t size = 77;
  m_bundle.GetNonPenPackages("", packages, &size);
  EXPECT_EQ(Names(packages), "u");
  EXPECT_EQ(size, 10U);
}

TEST_F(Selection, KeepsTheManifestsOrderOfGroups) {
  std::vector<BundleGroup*> groups;
  EXPECT_FALSE(m_bundle.GetPenGroups(1, "", groups));
  ASSERT_EQ(groups.size(), 2U);
  EXPECT_EQ(groups[0]->name + groups[1]->name, "APPSAny");
}

TEST_F(Selection, IsValidForPensThatGetSomething) {
  EXPECT_TRUE(m_bundle.IsValidForPen(1));
  EXPECT_TRUE(m_bundle.IsValidForPen(0)) << "a group lists 0";
  std::filesystem::remove_all(m_bundle.extractFolder() + "/Any");
  CBundle reloaded;
  ASSERT_EQ(reloaded.Load(m_file.path().c_str()), insSuccess);
  EXPECT_TRUE(reloaded.IsValidForPen(9)) << "what was lost is there again";

  TestGroup empty{.name = "Empty", .penTypes = "7"};
  empty.packages = {Package("e", "PenApp", "8", 0)};
  TestBundle file({.groups = {empty}});
  CBundle bundle;
  ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
  EXPECT_FALSE(bundle.IsValidForPen(7)) << "its only file is empty";
  EXPECT_FALSE(bundle.IsValidForPen(0)) << "no group lists 0";
}
