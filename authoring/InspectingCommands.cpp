#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "authoring/Commands.h"
#include "authoring/Failure.h"
#include "authoring/Lint.h"
#include "authoring/Output.h"

namespace authoring {

using nlohmann::json;

namespace {

struct InspectArguments {
  std::string path;
  std::vector<std::string> certificates;
  bool asJson = false;

  void AddTo(CLI::App& command, const char* name, const char* help) {
    command.add_option(name, path, help)->required();
    command.add_flag("--json", asJson, "Write JSON");
  }
  CLI::Option* AddCertificates(CLI::App& command, const char* help) {
    return command.add_option("--cert", certificates, help + std::string("; again for several"))
        ->type_name("CERT.pem")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  }
};

const char* ToText(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

void PrintFindings(const std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    std::string place = finding.line > 0 ? fmt::format("{}:{}", finding.file, finding.line) : finding.file;
    Say("{}: {}: {} [{}]\n    {}\n", place, ToText(finding.rule->severity), finding.message, finding.rule->name,
        finding.rule->remedy);
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

void AddLint(CLI::App& app) {
  auto arguments = std::make_shared<LintArguments>();
  CLI::App* command = app.add_subcommand("lint", "Find what the formats let pass in silence");
  arguments->AddTo(*command, "DIR|BUNDLE", "Folder before it is packed, or a bundle");
  arguments->AddCertificates(*command, "Certificate of a signer, to check subjects and dates");
  command->add_flag("--strict", arguments->strict, "Let warnings count as errors");
  std::set<std::string> names;
  for (const LintRule* rule : AllLintRules()) names.insert(rule->name);
  command->add_option("--ignore", arguments->ignored, "Leave out the findings of this name; again for several")
      ->type_name("NAME")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CLI::IsMember(names).description(""));
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

}  // namespace

void AddInspectingCommands(CLI::App& app) {
  AddLint(app);
}

std::vector<Certificate> LoadCertificates(const std::vector<std::string>& files) {
  std::vector<Certificate> certificates;
  for (const std::string& file : files) certificates.push_back(Certificate::FromFile(file));
  return certificates;
}

}  // namespace authoring
