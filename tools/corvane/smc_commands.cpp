// `corvane smc list` and `corvane smc read`: the raw key table of the SMC.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/platform/text.h"
#include "corvane/smc/smc.h"
#include "corvane/smc/smc_value.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {
namespace {

using text::statusText;

std::string hexBytes(const SMCValue& value) {
  return text::hexFromBytes(value.bytes, std::min<std::size_t>(value.dataSize, sizeof value.bytes));
}

std::string printable(const char* text, std::size_t length) {
  std::string out;
  for (std::size_t i = 0; i < length; ++i) {
    const char c = text[i];
    out += (c >= 0x20 && c <= 0x7E) ? c : '?';
  }
  return out;
}

// The status of a failed read of one key, with its meaning where the SMC's answer has one.
std::string readFailureText(kern_return_t status) {
  if (status == kSMCReturnNotFound) return "no such key, " + statusText(status);
  return statusText(status);
}

bool isTextType(const SMCValue& value) { return std::string_view(value.dataType, 4) == "ch8*"; }

// The value as a person reads it: the number the codec gives, text for character keys, or
// nothing when the codec does not know the type.
std::string displayValue(const SMCValue& value) {
  if (const auto number = smc::decodedValue(value)) return fmt::format("{:g}", static_cast<double>(*number));
  if (isTextType(value)) {
    const auto length = value.dataSize < sizeof value.bytes ? value.dataSize : sizeof value.bytes;
    return "\"" + printable(reinterpret_cast<const char*>(value.bytes), length) + "\"";
  }
  return "-";
}

nlohmann::json jsonValue(const SMCValue& value) {
  nlohmann::json row = {{"key", std::string(value.key, 4)},
                        {"type", std::string(value.dataType, 4)},
                        {"size", value.dataSize},
                        {"bytes", hexBytes(value)}};
  const auto number = smc::decodedValue(value);
  row["value"] = number ? nlohmann::json(*number) : nlohmann::json(nullptr);
  if (isTextType(value)) {
    const auto length = value.dataSize < sizeof value.bytes ? value.dataSize : sizeof value.bytes;
    row["text"] = printable(reinterpret_cast<const char*>(value.bytes), length);
  }
  return row;
}

void printRow(const SMCValue& value) {
  std::printf("%-4s  %-4s  %4u  %-20s  %s\n", printable(value.key, 4).c_str(), printable(value.dataType, 4).c_str(),
              value.dataSize, hexBytes(value).c_str(), displayValue(value).c_str());
}

bool openSmc(Context& context) {
  if (!context.installPlatform()) return false;
  if (SMCOpen() != 0) {
    std::fprintf(stderr, "corvane: cannot open the SMC\n");
    context.exitCode = kExitFailure;
    return false;
  }
  return true;
}

int listKeys(Context& context, bool json) {
  if (!openSmc(context)) return context.exitCode;
  SMCValue count;
  const kern_return_t counted = SMCReadKey("#KEY", &count);
  if (counted != 0) {
    std::fprintf(stderr, "corvane: cannot read the key count #KEY (%s)\n", statusText(counted).c_str());
    SMCClose();
    return kExitFailure;
  }
  // A count the codec cannot read (or one out of range) lists nothing rather than guessing.
  const auto keyCount = smc::decodedValue(count);
  const auto total =
      keyCount && *keyCount >= 1.0f && *keyCount < 4294967296.0f ? static_cast<uint32_t>(*keyCount) : 0u;
  nlohmann::json rows = nlohmann::json::array();
  if (!json) {
    printMachineLine();
    std::printf("%-4s  %-4s  %4s  %-20s  %s\n", "KEY", "TYPE", "SIZE", "BYTES", "VALUE");
  }
  uint32_t unreadable = 0;
  for (uint32_t index = 0; index < total; ++index) {
    SMCValue value;
    std::memset(&value, 0, sizeof value);
    const kern_return_t result = SMCReadKeyByIndex(index, &value);
    if (result != 0) {
      ++unreadable;
      if (json) {
        nlohmann::json row = {{"index", index}, {"error", statusText(result)}};
        if (value.key[0] != '\0') row["key"] = std::string(value.key, 4);
        rows.push_back(std::move(row));
      }
      continue;
    }
    if (json) {
      nlohmann::json row = jsonValue(value);
      row["index"] = index;
      rows.push_back(std::move(row));
    } else {
      printRow(value);
    }
  }
  SMCClose();
  if (json) {
    const nlohmann::ordered_json listing = {{"machine", machineJson()}, {"keys", std::move(rows)}};
    std::printf("%s\n", json_text::dump(listing, 1).c_str());
  } else {
    std::printf("%u keys, %u could not be read\n", total, unreadable);
  }
  return kExitOk;
}

int readKey(Context& context, std::string key, bool json) {
  if (key.empty() || key.size() > 4) {
    std::fprintf(stderr, "corvane: key '%s' is not one to four characters\n", key.c_str());
    return kExitBadInput;
  }
  key.resize(4, ' ');  // "FS!" names the key "FS! "
  if (!openSmc(context)) return context.exitCode;
  SMCValue value;
  const kern_return_t result = SMCReadKey(key.c_str(), &value);
  SMCClose();
  if (result != 0) {
    std::fprintf(stderr, "corvane: cannot read key '%s' (%s)\n", key.c_str(), readFailureText(result).c_str());
    return kExitFailure;
  }
  if (json) {
    std::printf("%s\n", json_text::dump(jsonValue(value), 1).c_str());
  } else {
    printRow(value);
  }
  return kExitOk;
}

}  // namespace

void registerSmcCommands(CLI::App& app, Context& context) {
  CLI::App* smc = app.add_subcommand("smc", "The raw key table of the SMC");
  smc->require_subcommand(1);

  auto* list = smc->add_subcommand("list", "Every key, in the SMC's index order, with type, size, bytes and value");
  list->footer("With --json: an object with \"machine\" (its name, and whether it is simulated) and \"keys\".");
  auto listJson = std::make_shared<bool>(false);
  list->add_flag("--json", *listJson, "Print a JSON array");
  list->callback([&context, listJson] { context.exitCode = listKeys(context, *listJson); });

  auto* read = smc->add_subcommand("read", "One key");
  auto key = std::make_shared<std::string>();
  auto readJson = std::make_shared<bool>(false);
  read->add_option("KEY", *key, "The four-character key, e.g. F0Tg")->required();
  read->add_flag("--json", *readJson, "Print a JSON object");
  read->callback([&context, key, readJson] { context.exitCode = readKey(context, *key, *readJson); });
}

}  // namespace corvane::cli
