#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "authoring/Commands.h"
#include "authoring/Diff.h"
#include "authoring/Failure.h"
#include "authoring/Info.h"
#include "authoring/Lint.h"
#include "authoring/LoadedBundle.h"
#include "authoring/Output.h"
#include "authoring/Plan.h"

namespace authoring {

using nlohmann::json;

namespace {

// May be given several times, each time with one value, so that it can stand before the positional arguments too.
CLI::Option* Repeatable(CLI::Option* option) {
  return option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->allow_extra_args(false);
}

struct InspectArguments {
  std::string path;
  std::vector<std::string> certificates;
  bool asJson = false;

  void AddTo(CLI::App& command, const char* name, const char* help) {
    command.add_option(name, path, help)->required()->type_name("");
    command.add_flag("--json", asJson, "Write JSON");
  }
  CLI::Option* AddCertificates(CLI::App& command, const char* help) {
    CLI::Option* option = command.add_option("--cert", certificates, help + std::string("; again for several"));
    return Repeatable(option)->type_name("CERT.pem");
  }
};

void AddInfo(CLI::App& app) {
  auto arguments = std::make_shared<InspectArguments>();
  CLI::App* command = app.add_subcommand("info", "Show a bundle's groups, packages in transfer order, and signers");
  arguments->AddTo(*command, "BUNDLE", "Bundle to show");
  arguments->AddCertificates(*command, "Certificate whose dates are shown with its signer");
  command->callback([arguments] {
    std::vector<Certificate> certificates = LoadCertificates(arguments->certificates);
    LoadedBundle loaded(arguments->path);
    json info = DescribeBundle(loaded.RequireLoaded(), certificates);
    arguments->asJson ? SayJson(info) : Say("{}", InfoText(info));
  });
}

void PrintChecks(const std::vector<FileCheck>& checks) {
  for (const FileCheck& check : checks) {
    if (check.result == insSuccess) {
      Say("ok      {}  {}\n", check.file, check.signer);
      continue;
    }
    ResultText text = TextOf(check.result);
    Say("FAILED  {}: {} ({}). {}\n", check.file, text.meaning, check.result, text.remedy);
  }
}

json DescribeChecks(const std::vector<FileCheck>& checks) {
  json files = json::array();
  for (const FileCheck& check : checks) {
    files.push_back({{"file", check.file},
                     {"signer", check.signer},
                     {"result", check.result},
                     {"meaning", TextOf(check.result).meaning}});
  }
  return files;
}

void AddVerify(CLI::App& app) {
  auto arguments = std::make_shared<InspectArguments>();
  CLI::App* command = app.add_subcommand("verify", "Check every file's signature with the library's own verifier");
  arguments->AddTo(*command, "BUNDLE", "Bundle to check");
  arguments->AddCertificates(*command, "Trusted certificate")->required();
  command->footer("Exit status 0 when every file is accepted, 1 when one is not or the bundle does not load.");
  command->callback([arguments] {
    std::vector<Certificate> certificates = LoadCertificates(arguments->certificates);
    LoadedBundle loaded(arguments->path);
    std::vector<FileCheck> checks;
    InsResCode result = loaded.result();
    if (result == insSuccess) {
      checks = CheckFiles(loaded, certificates);
      auto failed =
          std::find_if(checks.begin(), checks.end(), [](const FileCheck& c) { return c.result != insSuccess; });
      if (failed != checks.end()) result = failed->result;
    }
    if (arguments->asJson) {
      SayJson({{"schema", 1}, {"bundle", arguments->path}, {"result", result}, {"files", DescribeChecks(checks)}});
    } else if (checks.empty()) {
      Say("FAILED  {}: {} ({}). {}\n", arguments->path, TextOf(result).meaning, result, TextOf(result).remedy);
    } else {
      PrintChecks(checks);
    }
    if (result != insSuccess) EndWithFindings();
  });
}

const char* ToText(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

void PrintFindings(const std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    Say("{}: {}: {} [{}]\n    {}\n", PlaceOf(finding), ToText(finding.rule->severity), finding.message,
        finding.rule->name, finding.rule->remedy);
  }
}

json DescribeFindings(const std::vector<Finding>& findings) {
  json list = json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"name", finding.rule->name},
                    {"severity", ToText(finding.rule->severity)},
                    {"file", finding.file},
                    {"line", finding.line > 0 ? json(finding.line) : json()},
                    {"message", finding.message},
                    {"remedy", finding.rule->remedy}});
  }
  return list;
}

struct LintArguments : InspectArguments {
  std::vector<std::string> ignored;
  bool strict = false;
};

std::vector<Finding> RunLint(const LintArguments& arguments) {
  std::unique_ptr<Contents> contents = Contents::Open(arguments.path);
  LintInput input(*contents, LoadCertificates(arguments.certificates));
  std::vector<Finding> findings = Lint(input);
  std::set<std::string> ignored(arguments.ignored.begin(), arguments.ignored.end());
  std::erase_if(findings, [&ignored](const Finding& finding) { return ignored.contains(finding.rule->name); });
  return findings;
}

std::string CheckRuleName(const std::string& name) {
  for (const LintRule* rule : AllLintRules()) {
    if (rule->name == name) return {};
  }
  return fmt::format("\"{}\" is the name of no finding; give one that stands in brackets", name);
}

void AddLint(CLI::App& app) {
  auto arguments = std::make_shared<LintArguments>();
  CLI::App* command = app.add_subcommand("lint", "Find what the formats let pass in silence");
  arguments->AddTo(*command, "DIR|BUNDLE", "Folder before it is packed, or a bundle");
  arguments->AddCertificates(*command, "Certificate of a signer, to check subjects and dates");
  command->add_flag("--strict", arguments->strict, "Let warnings count as errors");
  CLI::Option* ignore =
      command->add_option("--ignore", arguments->ignored, "Leave out the findings of this name; again for several");
  Repeatable(ignore)->type_name("NAME")->check(CheckRuleName);
  command->footer("Exit status 1 when there is an error (with --strict: a finding), else 0.");
  command->callback([arguments] {
    std::vector<Finding> findings = RunLint(*arguments);
    auto errors = std::count_if(findings.begin(), findings.end(),
                                [](const Finding& finding) { return finding.rule->severity == Severity::kError; });
    auto warnings = static_cast<std::ptrdiff_t>(findings.size()) - errors;
    if (arguments->asJson) {
      SayJson({{"schema", 1}, {"findings", DescribeFindings(findings)}, {"errors", errors}, {"warnings", warnings}});
    } else {
      PrintFindings(findings);
      Say("{}: {} error(s), {} warning(s)\n", arguments->path, errors, warnings);
    }
    if (errors > 0 || (arguments->strict && warnings > 0)) EndWithFindings();
  });
}

void AddPlan(CLI::App& app) {
  struct Arguments {
    std::string bundle;
    std::string pens;
    bool asJson = false;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("plan", "Tell what an install would do to a pen, package by package, and why");
  command->add_option("BUNDLE", arguments->bundle, "Bundle to install")->required()->type_name("");
  command->add_option("--pen", arguments->pens, "What \"quarvel pens --json\" printed; each pen in it gets its plan")
      ->required()
      ->type_name("PEN.json");
  command->add_flag("--json", arguments->asJson, "Write JSON");
  command->footer(
      "Signatures are not checked; see \"verify\". \"fail\" stands for a package at which the install ends with an "
      "error.");
  command->callback([arguments] {
    const std::vector<PenDescription> pens = ReadPens(arguments->pens);
    LoadedBundle loaded(arguments->bundle);
    loaded.RequireLoaded();
    json list = json::array();
    for (const PenDescription& pen : pens) {
      const Plan plan = MakePlan(loaded.bundle(), pen);
      list.push_back(DescribePlan(plan, pen));
      if (!arguments->asJson) Say("{}{}", list.size() > 1 ? "\n" : "", PlanText(plan, pen));
    }
    if (arguments->asJson) SayJson({{"schema", 1}, {"bundle", arguments->bundle}, {"pens", list}});
  });
}

void AddDiff(CLI::App& app) {
  struct Arguments {
    std::string before;
    std::string after;
    bool asJson = false;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("diff", "Show what changed from one bundle to another");
  command->add_option("A", arguments->before, "The older bundle")->required()->type_name("");
  command->add_option("B", arguments->after, "The newer bundle")->required()->type_name("");
  command->add_flag("--json", arguments->asJson, "Write JSON");
  command->footer("Exit status 0 when nothing differs, 1 when something does.");
  command->callback([arguments] {
    std::vector<Difference> differences = Diff(arguments->before, arguments->after);
    json list = json::array();
    for (const Difference& difference : differences) {
      list.push_back({{"what", difference.what},
                      {"field", difference.field},
                      {"before", difference.before},
                      {"after", difference.after}});
      if (!arguments->asJson) Say("{}\n", ToText(difference));
    }
    if (arguments->asJson) SayJson({{"schema", 1}, {"differences", list}});
    if (!differences.empty()) EndWithFindings();
  });
}

}  // namespace

void AddInspectingCommands(CLI::App& app) {
  AddInfo(app);
  AddVerify(app);
  AddLint(app);
  AddPlan(app);
  AddDiff(app);
}

std::vector<Certificate> LoadCertificates(const std::vector<std::string>& files) {
  std::vector<Certificate> certificates;
  for (const std::string& file : files) certificates.push_back(Certificate::FromFile(file));
  return certificates;
}

}  // namespace authoring
