#include <openssl/evp.h>

#include <array>

#include "authoring/Commands.h"
#include "authoring/Contents.h"
#include "authoring/EffortScreen.h"
#include "authoring/Failure.h"
#include "authoring/Files.h"
#include "authoring/Init.h"
#include "authoring/Lint.h"
#include "authoring/Mutate.h"
#include "authoring/Output.h"
#include "authoring/Pack.h"
#include "authoring/TwoStep.h"

namespace authoring {

namespace {

// The first line of the file, or what is typed at the prompt, which libcrypto shows without echo.
std::string ReadPassphrase(const std::string& file) {
  if (!file.empty()) {
    std::string content = ReadFile(file);
    content.resize(std::min(content.find_first_of("\r\n"), content.size()));
    return content;
  }
  std::array<char, 1024> typed{};
  if (EVP_read_pw_string(typed.data(), static_cast<int>(typed.size()), "Passphrase of the key: ", 0) != 0) {
    throw Failure(ExitStatus::kKey, "The key is encrypted and no passphrase was given; use --passphrase-file.");
  }
  return typed.data();
}

void AddInit(CLI::App& app) {
  auto arguments = std::make_shared<InitOptions>();
  CLI::App* command = app.add_subcommand("init", "Write an update.xml to start from");
  command->add_option("DIR", arguments->folder, "Folder of the new bundle; made when it is missing")
      ->required()
      ->type_name("");
  command->add_option("--pen-types", arguments->penTypes, "Types of the pens that receive it, as 1,3; 0 is every pen")
      ->type_name("TYPES")
      ->capture_default_str();
  command->add_flag("--force", arguments->replace, "Replace an update.xml that is there");
  command->footer("Files that already lie in subfolders of DIR become packages, each subfolder a group.");
  command->callback([arguments] {
    int packages = Init(*arguments);
    Say("Wrote {}/update.xml with {}. Edit it, then run \"quarvel-bundle lint {}\".\n", arguments->folder,
        packages > 0 ? fmt::format("{} package(s)", packages) : "an example package", arguments->folder);
  });
}

std::vector<Finding> LintTelling(LintInput& input) {
  EffortScreen screen;
  screen.effort().Begin("Checking the folder", 0);
  return Lint(input);
}

// What the folder's bundle would not install, or not on every machine, is not packed unless told otherwise.
void RequireSound(const std::string& folder, const Certificate& certificate, bool anyway) {
  std::unique_ptr<Contents> contents = Contents::Open(folder);
  std::vector<Certificate> certificates;
  certificates.push_back(Certificate::FromPem(certificate.pem(), certificate.origin()));
  LintInput input(*contents, std::move(certificates));
  std::vector<Finding> findings = LintTelling(input);
  size_t errors = 0;
  for (const Finding& finding : findings) {
    bool error = finding.rule->severity == Severity::kError;
    bool dates = std::string_view(finding.rule->name) == "certificate-out-of-dates";
    if (!error && !dates) continue;
    errors += error ? 1 : 0;
    Warn(fmt::format("{}: {}: {} [{}]", PlaceOf(finding), error ? "error" : "warning", finding.message,
                     finding.rule->name));
  }
  if (errors == 0 || anyway) return;
  throw Failure(ExitStatus::kFindings,
                fmt::format("{} has {} error(s), as \"quarvel-bundle lint\" explains them; correct them, or give "
                            "--despite-errors to pack it all the same.",
                            folder, errors));
}

void AddDespiteErrors(CLI::App& command, bool& anyway) {
  command.add_flag("--despite-errors", anyway, "Make the bundle although lint finds errors");
}

void AddPack(CLI::App& app) {
  struct Arguments {
    std::string folder;
    std::string output;
    SignerArguments signer;
    bool anyway = false;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("pack", "Sign a folder's files, make a bundle of them and verify it");
  command->add_option("DIR", arguments->folder, "Folder that holds update.xml and the package files")
      ->required()
      ->type_name("");
  command->add_option("-o,--output", arguments->output, "Bundle to write")->required()->type_name("FILE");
  arguments->signer.AddTo(*command, true);
  AddDespiteErrors(*command, arguments->anyway);
  command->footer(
      "The same folder, key and certificate give the same bytes. A bundle that does not verify is not kept.");
  command->callback([arguments] {
    Signer signer = arguments->signer.Load();
    RequireSound(arguments->folder, signer.certificate(), arguments->anyway);
    Pack(arguments->folder, signer, arguments->output, EffortScreen().effort());
    Say("Wrote and verified {}, signed by {}\n", arguments->output, signer.certificate().Subject());
  });
}

void AddDigest(CLI::App& app) {
  struct Arguments {
    std::string folder;
    std::string digests;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("digest", "Write what is to be signed, for a key that lives elsewhere");
  command->add_option("DIR", arguments->folder, "Folder that holds update.xml and the package files")
      ->required()
      ->type_name("");
  command->add_option("-o,--output", arguments->digests, "Folder for the digests")->required()->type_name("DIGESTS");
  command->footer(
      "Where the key is, sign each NNNN.sha1 into NNNN.sig beside it, for example:\n"
      "  for f in *.sha1; do openssl pkeyutl -sign -inkey KEY.pem -pkeyopt digest:sha1 -in $f -out ${f%.sha1}.sig; "
      "done\n"
      "Then make the bundle with \"quarvel-bundle attach\".");
  command->callback([arguments] {
    size_t count = WriteDigests(arguments->folder, arguments->digests);
    Say("Wrote {} digests into {}; sign each .sha1 file into a .sig file beside it, then run \"quarvel-bundle "
        "attach\".\n",
        count, arguments->digests);
  });
}

void AddAttach(CLI::App& app) {
  struct Arguments {
    std::string folder;
    std::string digests;
    std::string certificate;
    std::string output;
    bool anyway = false;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("attach", "Make a bundle with signatures that were made elsewhere");
  command->add_option("DIR", arguments->folder, "The folder that \"digest\" was run on, unchanged")
      ->required()
      ->type_name("");
  command->add_option("--signatures", arguments->digests, "Folder with digests.json and the .sig files")
      ->required()
      ->type_name("DIGESTS");
  command->add_option("--cert", arguments->certificate, "Signer's certificate, PEM")->required()->type_name("CERT.pem");
  command->add_option("-o,--output", arguments->output, "Bundle to write")->required()->type_name("FILE");
  AddDespiteErrors(*command, arguments->anyway);
  command->callback([arguments] {
    Certificate certificate = Certificate::FromFile(arguments->certificate);
    RequireSound(arguments->folder, certificate, arguments->anyway);
    Attach(arguments->folder, arguments->digests, certificate, arguments->output, EffortScreen().effort());
    Say("Wrote and verified {}, signed by {}\n", arguments->output, certificate.Subject());
  });
}

void AddMutate(CLI::App& app) {
  struct Arguments {
    std::string bundle;
    std::string folder;
    SignerArguments signer;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("mutate", "Make a set of broken bundles from a good one, for a host's tests");
  command->add_option("BUNDLE", arguments->bundle, "A bundle that verifies")->required()->type_name("");
  command->add_option("-o,--output", arguments->folder, "Folder for the broken bundles")->required()->type_name("DIR");
  arguments->signer.AddTo(*command, false);
  command->footer(
      "DIR/expected.json lists for each bundle what is wrong with it and the result codes that loading it and "
      "verifying it with the signer's certificate must give. With --key and --cert there are more of them: those whose "
      "broken "
      "manifest is properly signed.");
  command->callback([arguments] {
    std::optional<Signer> signer;
    if (!arguments->signer.key.empty()) signer = arguments->signer.Load();
    size_t count = Mutate(arguments->bundle, arguments->folder, signer ? &*signer : nullptr).size();
    Say("Wrote {} bundles and expected.json into {}\n", count, arguments->folder);
  });
}

}  // namespace

void AddMakingCommands(CLI::App& app) {
  AddInit(app);
  AddPack(app);
  AddDigest(app);
  AddAttach(app);
  AddMutate(app);
}

void SignerArguments::AddTo(CLI::App& command, bool required) {
  CLI::Option* keyOption = command.add_option("--key", key, "Signer's private key, PEM; may be encrypted")
                               ->required(required)
                               ->type_name("KEY.pem");
  CLI::Option* certificateOption =
      command.add_option("--cert", certificate, "Signer's certificate, PEM")->required(required)->type_name("CERT.pem");
  keyOption->needs(certificateOption);
  certificateOption->needs(keyOption);
  command
      .add_option("--passphrase-file", passphraseFile,
                  "File whose first line is the passphrase of an encrypted key; without it there is a prompt")
      ->type_name("FILE");
}

Signer SignerArguments::Load() const {
  return Signer::FromFiles(key, certificate, [this] { return ReadPassphrase(passphraseFile); });
}

}  // namespace authoring
