// Each example host installs, and fails, on simulated pens as its reader would see it.
#include <gtest/gtest.h>

#include "tests/support/RunProgram.h"
#include "tests/support/SimPens.h"
#include "tests/support/TestBundle.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kInterpreterCanLoad = false;  // the sanitizer has to be in the program from its start
#else
constexpr bool kInterpreterCanLoad = sizeof(void*) == 8;  // a 64-bit interpreter loads no 32-bit library
#endif

struct Host {
  std::string name;
  std::vector<std::string> command;
};

void PrintTo(const Host& host, std::ostream* out) {
  *out << host.name;
}

std::vector<Host> Hosts() {
  return {{"C", {INSTALL_C}}, {"Cpp", {INSTALL_CPP}}, {"Python", {"/usr/bin/python3", INSTALL_PY}}};
}

TestBundleOptions WriterBundle(const std::string& file = PenAppContent("writer", "3.1.0", 7)) {
  TestPackage writer = PenAppPackage("writer", "Writer", "3.1.0", 7);
  writer.content = file;
  TestBundleOptions options;
  options.groups = {{.name = "Notes", .version = "3.1", .packages = {writer}}};
  return options;
}

class Example : public testing::TestWithParam<Host> {
 protected:
  void SetUp() override {
    if (GetParam().name == "Python" && !kInterpreterCanLoad) GTEST_SKIP() << "python3 cannot load this build";
  }
  void PlugIn() { pens.Add({{"id", "0x2a"}, {"name", "Pen of Ada"}, {"type", 1}, {"firmware", "8.9.14.b1"}}); }

  ProgramResult Run(std::vector<std::string> arguments) const {
    const Host host = GetParam();
    arguments.insert(arguments.begin(), host.command.begin(), host.command.end());
    return RunProgram(arguments,
                      {"", {{"TESSVIK_SIM_DIR", pens.folder().path()}, {"LD_LIBRARY_PATH", LIBRARY_FOLDER}}});
  }
  ProgramResult Install(const TestBundleOptions& options, const std::string& certificate) const {
    const TestBundle bundle(options);
    return Run({bundle.path(), files.Write("cert.pem", certificate)});
  }

  SimPens pens;
  TempFolder files;
};

TEST_P(Example, InstallsAndShowsProgress) {
  PlugIn();
  const ProgramResult run = Install(WriterBundle(), MakeTestIdentity().certPem);
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_NE(run.out.find("Writer"), std::string::npos) << run.out;
  EXPECT_EQ(pens.Contents(42), "8.9.14.b1; writer 3.1.0 (Notes 3.1)");
}

TEST_P(Example, StopsAtAPackageThatThePenRefuses) {
  PlugIn();
  const ProgramResult run = Install(WriterBundle("no application"), MakeTestIdentity().certPem);
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_NE((run.out + run.err).find(GetParam().name == "Python" ? "-201" : "installing an application failed"),
            std::string::npos)
      << run.out << run.err;
}

TEST_P(Example, InstallsNothingFromASignerWhoIsNotTrusted) {
  PlugIn();
  const ProgramResult run = Install(WriterBundle(), MakeTestIdentity("/C=SE/O=Elsewhere/CN=Nobody", 1).certPem);
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_EQ(pens.Contents(42), "8.9.14.b1");
}

TEST_P(Example, TellsWhatItLacks) {
  EXPECT_NE(Run({}).err.find("BUNDLE CERTIFICATE"), std::string::npos);
  const ProgramResult run = Install(WriterBundle(), MakeTestIdentity().certPem);
  EXPECT_NE(run.status, 0);
  EXPECT_NE(run.err.find("no pen is connected"), std::string::npos) << run.err;
}

INSTANTIATE_TEST_SUITE_P(Hosts, Example, testing::ValuesIn(Hosts()), [](const auto& host) { return host.param.name; });

}  // namespace
