#include "authoring/Init.h"

#include <gtest/gtest.h>

#include "authoring/Failure.h"
#include "authoring/Lint.h"
#include "tests/support/TempFolder.h"

TEST(Init, MakesAPackageOfEachFileAndAGroupOfEachSubfolder) {
  TempFolder folder;
  folder.Write("Games/chess & more.pen", "x");
  folder.Write("Games/.hidden", "x");
  folder.Write("Notes/a-name-of-more-than-fifteen.pen", "x");
  folder.Write("readme.txt", "x");
  EXPECT_EQ(authoring::Init({.folder = folder.path().string(), .penTypes = "1,3"}), 2);
  std::unique_ptr<authoring::Contents> contents = authoring::Contents::Open(folder.path().string());
  authoring::LintInput input(*contents, {});
  ASSERT_TRUE(input.manifest) << input.manifestFault;
  ASSERT_EQ(input.manifest->groups().size(), 2u);
  EXPECT_EQ(input.manifest->groups()[0].element->ChildText("PenTypes"), "1,3");
  EXPECT_EQ(input.manifest->groups()[0].packages[0].Member(), "Games/chess & more.pen");
  std::vector<authoring::Finding> findings = Lint(input);
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_EQ(findings[0].file, "Games/.hidden");
  EXPECT_EQ(findings[1].file, "readme.txt");
}

TEST(Init, KeepsAManifestThatIsThereUnlessTold) {
  TempFolder folder;
  folder.Write("update.xml", "mine");
  authoring::InitOptions options{.folder = folder.path().string()};
  EXPECT_THROW(authoring::Init(options), authoring::Failure);
  EXPECT_EQ(ReadWholeFile(folder / "update.xml"), "mine");
  options.replace = true;
  EXPECT_EQ(authoring::Init(options), 0);
  EXPECT_NE(ReadWholeFile(folder / "update.xml").find("example.pen"), std::string::npos);
}
