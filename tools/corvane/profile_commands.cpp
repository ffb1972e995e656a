// `corvane profile ...`: the simulated machines, and making new ones from recorded listings.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include "commands.h"
#include "corvane/platform/dump_import.h"

namespace corvane::cli {
namespace {

struct ImportArguments {
  std::string dump;
  std::string output;  // empty: standard output
  platform::DumpImportOptions options;
};

int reportBadInput(const std::string& message) {
  std::fprintf(stderr, "corvane: %s\n", message.c_str());
  return kExitBadInput;
}

int runImport(const ImportArguments& arguments) {
  std::ifstream in(arguments.dump, std::ios::binary);
  if (!in) return reportBadInput("cannot read " + arguments.dump + ": " + std::strerror(errno));
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return reportBadInput("cannot read " + arguments.dump);

  std::string error;
  auto profile = platform::importDump(text, arguments.dump, arguments.options, &error);
  if (!profile) return reportBadInput(error);
  const std::string json = platform::serializeProfile(*profile);

  if (arguments.output.empty()) {
    std::cout << json << std::flush;
    return std::cout ? kExitOk : reportBadInput("cannot write the profile to standard output");
  }
  std::ofstream out(arguments.output, std::ios::binary | std::ios::trunc);
  if (!out) return reportBadInput("cannot write " + arguments.output + ": " + std::strerror(errno));
  out << json;
  out.close();
  if (!out) return reportBadInput("cannot write " + arguments.output);
  return kExitOk;
}

int runList() {
  for (const auto& name : platform::builtinProfileNames()) {
    std::printf("%s%s\n", name.c_str(), name == platform::kDefaultMachine ? " (default)" : "");
  }
  return kExitOk;
}

}  // namespace

void registerProfileCommands(CLI::App& app, Context& context) {
  CLI::App* profile = app.add_subcommand("profile", "Simulated machine profiles");
  profile->require_subcommand(1);

  auto arguments = std::make_shared<ImportArguments>();
  CLI::App* import = profile->add_subcommand("import", "Make a machine profile (JSON) from a recorded SMC listing");
  import->add_option("DUMP", arguments->dump, "The recorded listing")->required();
  import->add_option("-o,--output", arguments->output, "Write the profile here rather than to standard output");
  import->add_option("--name", arguments->options.name, "Profile name (default: the model, else the file name)");
  import->add_option("--model", arguments->options.model, "Model identifier, e.g. MacBookPro16,1");
  import->add_option("--brand", arguments->options.brand, "CPU brand string; \"Apple ...\" means Apple silicon");
  import->callback([arguments, &context] { context.exitCode = runImport(*arguments);
});

CLI::App* list = profile->add_subcommand("list", "List the built-in machines");
list->callback([&context] { context.exitCode = runList(); });
}  // namespace corvane::cli

}  // namespace corvane::cli
