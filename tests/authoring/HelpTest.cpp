// What is written by hand beside the program's own help: completions and the manual page.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "authoring/Lint.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

namespace {

const std::string kSource = QUARVEL_SOURCE_FOLDER;

std::set<std::string> OptionsIn(const std::string& text) {
  static const std::regex kOption("--[a-z][a-z-]*");
  return {std::sregex_token_iterator(text.begin(), text.end(), kOption), {}};
}

// The options that a command's help lists at the beginnings of its lines.
std::set<std::string> OptionsOf(const std::string& command) {
  std::string help = RunProgram({QUARVEL_BUNDLE_PROGRAM, command, "--help"}).out;
  static const std::regex kLine("\n  (-[a-z],)?(--[a-z-]+)");
  return {std::sregex_token_iterator(help.begin(), help.end(), kLine, 2), {}};
}

std::string WithPlainHyphens(std::string text) {
  return std::regex_replace(text, std::regex("\\\\-"), "-");
}

}  // namespace

TEST(Help, NamesTheSameOptionsAsCompletionsAndManual) {
  const std::string bash = ReadWholeFile(kSource + "/packaging/completions/bash/quarvel-bundle");
  const std::string zsh = ReadWholeFile(kSource + "/packaging/completions/zsh/_quarvel-bundle");
  const std::string fish = ReadWholeFile(kSource + "/packaging/completions/fish/quarvel-bundle.fish");
  const std::set<std::string> manual =
      OptionsIn(WithPlainHyphens(ReadWholeFile(kSource + "/docs/man/quarvel-bundle.1")));
  std::set<std::string> all{"--help", "--version"};
  for (const char* command : {"init", "pack", "digest", "attach", "mutate", "info", "verify", "lint", "plan", "diff"}) {
    SCOPED_TRACE(command);
    const std::set<std::string> options = OptionsOf(command);
    std::smatch inBash;
    ASSERT_TRUE(std::regex_search(bash, inBash, std::regex(std::string("\n      ") + command + "\\) (words=[^\n]*)")));
    EXPECT_EQ(OptionsIn(inBash[1]), options);
    for (const std::string& option : options) {
      EXPECT_NE(zsh.find(option), std::string::npos) << option;
      const std::regex inFish("__quarvel_bundle_on[^']*" + std::string(command) + "[^\n]* -l " + option.substr(2) +
                              " ");
      EXPECT_TRUE(std::regex_search(fish, inFish)) << option;
    }
    all.insert(options.begin(), options.end());
  }
  EXPECT_EQ(manual, all);
}

TEST(Help, NamesTheSameExitStatusesAsTheManual) {
  const std::string help = RunProgram({QUARVEL_BUNDLE_PROGRAM, "--help"}).out;
  const std::string manual = ReadWholeFile(kSource + "/docs/man/quarvel-bundle.1");
  static const std::regex kStatus("\n *([0-9]  [^\n]+)");
  auto statuses = [](const std::string& text) {
    return std::vector<std::string>(std::sregex_token_iterator(text.begin(), text.end(), kStatus, 1), {});
  };
  EXPECT_EQ(statuses(help.substr(help.find("Exit status:"))), statuses(manual.substr(manual.find("EXIT STATUS"))));
  EXPECT_EQ(statuses(manual).size(), 5u);
}

TEST(Help, ManualListsEveryFinding) {
  const std::string manual = WithPlainHyphens(ReadWholeFile(kSource + "/docs/man/quarvel-bundle.1"));
  for (const authoring::LintRule* rule : authoring::AllLintRules()) {
    EXPECT_NE(manual.find(std::string("\n.B ") + rule->name + "\n"), std::string::npos) << rule->name;
  }
}
