// Finds what the formats let pass in silence: values that are cut or not read, files that are never installed or never
// checked, bundles that cannot be unpacked. Works on a folder before it is packed and on a finished bundle.
#ifndef QUARVEL_AUTHORING_LINT_H
#define QUARVEL_AUTHORING_LINT_H

#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "authoring/Contents.h"
#include "authoring/Manifest.h"
#include "authoring/Signing.h"

namespace authoring {

enum class Severity {
  kWarning,  // works, but seldom as its author meant it
  kError,    // the bundle or a part of it does not install, or not on every machine
};

struct LintRule;

struct Finding {
  const LintRule* rule;
  std::string file;  // a manifest or a member
  int line;          // 0 where lines mean nothing
  std::string message;
};

// One of the two manifests, as text and as tree.
struct ManifestSource {
  std::string file;
  bool present = false;
  std::string text;
  std::vector<SourceToken> tokens;  // views into `text`
  std::optional<SourceElement> root;
};

// An entry of the signature manifest with the key under which the library files it.
struct SignatureRecord {
  std::string name;
  std::string subject;
  std::string signature;
  std::string key;
  bool hasName = false;
  bool hasSubject = false;
  int line = 0;
};

// Everything that the checks look at. Not movable: the tokens and the manifest point into it.
class LintInput {
 public:
  LintInput(Contents& contents, std::vector<Certificate> certificates);
  LintInput(const LintInput&) = delete;
  LintInput& operator=(const LintInput&) = delete;

  const Contents& contents;
  ManifestSource update;
  ManifestSource bom;
  std::unique_ptr<Manifest> manifest;       // null when "update.xml" has no groups to read
  std::string manifestFault;                // why it is null
  std::vector<SignatureRecord> signatures;  // in the order written
  std::vector<Certificate> certificates;
  // The members that reach a user's machine, in the order in which they are unpacked.
  std::vector<std::string> shipped;
};

// Where a check puts what it finds.
class Findings {
 public:
  Findings(const LintRule& rule, std::vector<Finding>& out) : m_rule(rule), m_out(out) {}
  void Add(const std::string& file, int line, std::string message) {
    m_out.push_back({&m_rule, file, line, std::move(message)});
  }

 private:
  const LintRule& m_rule;
  std::vector<Finding>& m_out;
};

struct LintRule {
  const char* name;
  Severity severity;
  void (*check)(const LintInput& input, Findings& findings);
  const char* remedy;
};

// The rules by subject; AllLintRules is all of them.
std::span<const LintRule> TextRules();
std::span<const LintRule> ManifestRules();
std::span<const LintRule> ArchiveRules();
std::span<const LintRule> SignatureRules();
std::vector<const LintRule*> AllLintRules();

// Where the finding is: "update.xml:12", or the file alone.
std::string PlaceOf(const Finding& finding);

// Runs every rule; findings are ordered by file, line and rule name. `certificates` may be empty.
std::vector<Finding> Lint(const LintInput& input);

}  // namespace authoring

#endif
