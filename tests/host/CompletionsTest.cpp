// The help, the manual page and the completions tell of the same options and exit statuses.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "desk/ResultTexts.h"
#include "tests/host/HostRig.h"

namespace {

std::set<std::string> OptionsIn(const std::string& text) {
  static const std::regex option("--[a-z][a-z-]+");
  return {std::sregex_token_iterator(text.begin(), text.end(), option), std::sregex_token_iterator()};
}

std::string Source(const std::string& file) {
  std::string text = ReadWholeFile(std::string(QUARVEL_SOURCE_DIR) + '/' + file);
  EXPECT_FALSE(text.empty()) << file;
  return text;
}

TEST(Completions, OfferWhatEachCommandTakes) {
  HostRig rig;
  std::string bash = Source("packaging/completions/bash/quarvel");
  std::string manual = std::regex_replace(Source("docs/man/quarvel.1"), std::regex(R"(\\-)"), "-");
  std::string fish = Source("packaging/completions/fish/quarvel.fish");
  std::string zsh = Source("packaging/completions/zsh/_quarvel");
  for (const std::string command : {"pens", "verify", "install", "recover", "remove", "history", "report", "version"}) {
    SCOPED_TRACE(command);
    std::string help = rig.Quarvel({command, "--help"}).out;
    std::string options = help.substr(help.find("Options:"));
    std::set<std::string> taken;
    static const std::regex heading(R"(\n  (?:-\w,)?(--[a-z-]+))");
    for (std::sregex_iterator each(options.begin(), options.end(), heading), end; each != end; ++each) {
      taken.insert((*each)[1]);
    }
    ASSERT_TRUE(taken.contains("--help")) << help;
    std::smatch line;
    ASSERT_TRUE(std::regex_search(bash, line, std::regex("\n +" + command + R"(\) words="([^"]*)\")")));
    EXPECT_EQ(OptionsIn(line[1]), taken);
    for (const std::string& option : taken) {
      EXPECT_PRED2(Has, manual, option);
      EXPECT_PRED2(Has, zsh, option);
      EXPECT_PRED2(Has, fish, "-l " + option.substr(2));
    }
  }
}

// What the script for bash offers behind the words, with the pen 0x2a connected.
std::string Offered(const HostRig& rig, const std::string& words) {
  return rig
      .Shell("source '" QUARVEL_SOURCE_DIR "/packaging/completions/bash/quarvel'; COMP_WORDS=(\"$quarvel\" " + words +
             "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quarvel; echo \"${COMPREPLY[*]}\"")
      .out;
}

TEST(Completions, OfferPensDecisionsAndCommands) {
  HostRig rig;
  rig.AddPen();
  EXPECT_EQ(Offered(rig, "install --pen ''"), std::string(kAda) + '\n');
  EXPECT_EQ(Offered(rig, "install --pen = ''"), std::string(kAda) + '\n') << "as bash cuts --pen=";
  EXPECT_EQ(Offered(rig, "install x --on-error s"), "stop skip\n");
  EXPECT_EQ(Offered(rig, "re"), "recover remove report\n");
  EXPECT_EQ(Offered(rig, "remove --f"), "\n");
  EXPECT_EQ(Offered(rig, "history ''"), "show\n");
  EXPECT_EQ(Offered(rig, "history show last --"), "--lines --json --help\n");
  EXPECT_EQ(Offered(rig, "install ''"), "\n") << "then files are offered";
}

TEST(Completions, TheManualListsEveryExitStatus) {
  HostRig rig;
  std::string manual = std::regex_replace(Source("docs/man/quarvel.1"), std::regex(R"(\\-)"), "-");
  std::string help = rig.Quarvel({"--help"}).out;
  std::istringstream rows(ExitStatusHelp());
  std::string row;
  std::getline(rows, row);
  int count = 0;
  for (; std::getline(rows, row); ++count) {
    std::string words = row.substr(2);
    EXPECT_PRED2(Has, manual, words + '\n');
    EXPECT_PRED2(Has, help, words + '\n');
  }
  EXPECT_EQ(count, 10);
}

}  // namespace
