// Importing recorded SMC listings. Both formats are read strictly, line by line: a line that is
// neither header, section marker nor a well-formed key line stops the import, because a silently
// skipped key would make the simulated machine differ from the recorded one.
#include "corvane/platform/dump_import.h"
#include "corvane/platform/text.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <map>
#include <string>
#include <string_view>
#include <optional>
#include <unordered_map>
#include <vector>

namespace corvane::platform {
namespace {

using text::bytesFromHex;
using text::hexNumber;
using text::packFourCc;
using text::trimmed;

constexpr std::size_t kMaxValueBytes = 32;
// What a real SMC answers for a key it will not read; used where the listing gives no code.
constexpr uint8_t kUnreadableResult = 0x85;
constexpr std::string_view kRedactedValue = "[value redacted by collector]";
constexpr std::string_view kRedactedSerialLine = "[serial number line redacted by collector]";
constexpr std::string_view kUnableToRead = "Unable to read smc value ";

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isPrintable(char c) { return c >= 0x20 && c <= 0x7E; }

std::optional<uint32_t> decimalNumber(std::string_view text) {
  if (text.empty() || text.size() > 6) return std::nullopt;
  uint32_t value = 0;
  for (char c : text) {
    if (!isDigit(c)) return std::nullopt;
    value = value * 10 + static_cast<uint32_t>(c - '0');
  }
  return value;
}

// The model identifier a text starts with ("MacBookPro16,1", "Mac16,12"), or empty.
std::string_view modelIdPrefix(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && isAlpha(text[i])) ++i;
  const std::size_t major = i;
  while (i < text.size() && isDigit(text[i])) ++i;
  if (major == 0 || i == major || i >= text.size() || text[i] != ',') return {};
  const std::size_t minor = ++i;
  while (i < text.size() && isDigit(text[i])) ++i;
  if (i == minor || (i < text.size() && (isAlpha(text[i]) || isDigit(text[i])))) return {};
  return text.substr(0, i);
}

std::string excerpt(std::string_view line) {
  constexpr std::size_t kLimit = 80;
  std::string text(line.substr(0, kLimit));
  for (char& c : text) {
    if (!isPrintable(c)) c = '?';
  }
  return "\"" + text + (line.size() > kLimit ? "...\"" : "\"");
}

// The core clusters of each Apple-silicon chip a recorded machine may carry: the efficiency
// cluster first, then the performance clusters and their sizes, numbered as the Mac numbers its
// processors (efficiency cores from cpu0). Listings record no cores, so the chip supplies them.
struct ChipClusters {
  std::string_view brand;
  int efficiencyCores;
  std::vector<int> performanceClusters;
};

const std::vector<ChipClusters>& chipClusters() {
  static const std::vector<ChipClusters> chips = {
      {"Apple M1", 4, {4}},           {"Apple M1 Pro", 2, {4, 4}}, {"Apple M1 Max", 2, {4, 4}},
      {"Apple M2", 4, {4}},           {"Apple M2 Pro", 4, {4, 4}}, {"Apple M2 Max", 4, {4, 4}},
      {"Apple M3", 4, {4}},           {"Apple M3 Pro", 6, {6}},    {"Apple M4", 6, {4}},
      {"Apple A18 Pro", 4, {2}},
  };
  return chips;
}

// The registry's processor nodes of `brand`'s chip ({"cpus": [...]}), or null for a chip not
// in the table.
nlohmann::json coreClustersOf(std::string_view brand) {
  const auto& chips = chipClusters();
  const auto chip = std::find_if(chips.begin(), chips.end(), [&](const ChipClusters& c) { return c.brand == brand; });
  if (chip == chips.end()) return nullptr;
  nlohmann::json cpus = nlohmann::json::array();
  int id = 0;
  const auto add = [&](int count, int cluster, const char* type) {
    for (int i = 0; i < count; ++i, ++id) {
      cpus.push_back({{"name", "cpu" + std::to_string(id)}, {"cpu-id", id}, {"cluster-id", cluster},
                      {"cluster-type", type}});
    }
  };
  add(chip->efficiencyCores, 0, "E");
  for (std::size_t cluster = 0; cluster < chip->performanceClusters.size(); ++cluster) {
    add(chip->performanceClusters[cluster], static_cast<int>(cluster) + 1, "P");
  }
  return {{"cpus", std::move(cpus)}};
}

std::string joined(const std::vector<std::string>& items) {
  std::string text;
  for (const auto& item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

// Reads fixed pieces off the front of a line.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : text_(text) {}
  bool literal(std::string_view expected) {
    if (!text_.starts_with(expected)) return false;
    text_.remove_prefix(expected.size());
    return true;
  }
  bool take(std::size_t count, std::string_view& out) {
    if (text_.size() < count) return false;
    out = text_.substr(0, count);
    text_.remove_prefix(count);
    return true;
  }
  bool until(char stop, std::string_view& out) {
    auto at = text_.find(stop);
    if (at == std::string_view::npos) return false;
    out = text_.substr(0, at);
    text_.remove_prefix(at);
    return true;
  }
  std::string_view rest() const { return text_; }

 private:
  std::string_view text_;
};

class DumpImporter {
 public:
  DumpImporter(std::string_view fileName, std::string* error) : fileName_(fileName), error_(error) {}

  std::shared_ptr<MachineProfile> run(std::string_view text, const DumpImportOptions& options) {
    // Listings saved by some editors start with a byte-order mark.
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    std::size_t number = 0;
    std::size_t pos = 0;
    while (pos < text.size()) {
      std::size_t end = text.find('\n', pos);
      if (end == std::string_view::npos) end = text.size();
      std::string_view line = text.substr(pos, end - pos);
      pos = end + 1;
      ++number;
      if (!line.starts_with('#')) line = trimEnd(line);
      if (!readLine(line, number)) return nullptr;
    }
    if (pendingStatus_) {
      fail(pendingLine_, "\"Unable to read\" is not followed by a key line");
      return nullptr;
    }
    if (entries_.empty()) {
      failFile("no key lines");
      return nullptr;
    }
    if (statedPublic_ && *statedPublic_ != publicLines_) {
      fail(statedPublicLine_,
           "the section states " + std::to_string(*statedPublic_) + " keys but lists " + std::to_string(publicLines_));
      return nullptr;
    }
    return finish(options);
  }

 private:
  enum class Format { kUnknown, kBracketed, kIndented };

  static std::string_view trimEnd(std::string_view line) {
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r')) {
      line.remove_suffix(1);
    }
    return line;
  }

  std::string baseName() const {
    auto slash = fileName_.find_last_of('/');
    return std::string(slash == std::string_view::npos ? fileName_ : fileName_.substr(slash + 1));
  }

  bool failFile(const std::string& detail) {
    if (error_ != nullptr) *error_ = "dump '" + std::string(fileName_) + "': " + detail;
    return false;
  }

  bool fail(std::size_t line, const std::string& detail) {
    return failFile("line " + std::to_string(line) + ": " + detail);
  }

  bool readLine(std::string_view line, std::size_t number) {
    if (line.starts_with('#')) {
      headerLine(line);
      return true;
    }
    if (line.empty()) return true;
    if (format_ == Format::kUnknown) {
      format_ = line.starts_with("  ") ? Format::kIndented : Format::kBracketed;
    }
    return format_ == Format::kIndented ? indentedLine(line, number) : bracketedLine(line, number);
  }

  void headerLine(std::string_view line) {
    std::string_view body = line.substr(1);
    if (body.starts_with(' ')) body.remove_prefix(1);
    body = trimEnd(body);
    // The ruled lines around the block carry nothing.
    if (!body.empty() && body.find_first_not_of('=') == std::string_view::npos) return;
    header_.emplace_back(body);
    if (body.empty() || body.front() == ' ') return;  // continuation of the label above
    auto colon = body.find(':');
    if (colon == std::string_view::npos) return;
    labels_.emplace(std::string(trimmed(body.substr(0, colon))), std::string(trimmed(body.substr(colon + 1))));
  }

  std::string label(std::string_view name) const {
    auto found = labels_.find(name);
    return found == labels_.end() ? std::string() : found->second;
  }

  bool bracketedLine(std::string_view line, std::size_t number) {
    if (!line.starts_with('[') || line == kRedactedSerialLine) {
      if (pendingStatus_) return fail(pendingLine_, "\"Unable to read\" is not followed by a key line");
      return bracketedNonKeyLine(line, number);
    }
    Cursor in(line);
    std::string_view key, shown, code, len, attr;
    if (!in.literal("[") || !in.take(4, key) || !in.literal("] type [") || !in.take(4, shown) || !in.literal("] ") ||
        !in.take(8, code) || !in.literal(" len [") || !in.until(']', len) || !in.literal("] attr [") ||
        !in.take(2, attr) || !in.literal("] -> ")) {
      return fail(number, "not a key line: " + excerpt(line));
    }
    const std::string_view value = in.rest();
    SmcEntry entry;
    if (!checkKey(key, number)) return false;
    entry.key = packFourCc(key);

    auto type = hexNumber(code);
    if (!type || code.size() != 8) return fail(number, "type code " + excerpt(code) + " is not 8 hex digits");
    entry.type = *type;
    for (int i = 0; i < 4; ++i) {
      // The listing prints a character it cannot show as '?': "ui8?" is "ui8" and a NUL.
      const auto byte = static_cast<unsigned char>((*type >> (24 - 8 * i)) & 0xFF);
      if (byte > 0x7E) return fail(number, "type code " + std::string(code) + " is not ASCII");
      const bool shownAsIs = static_cast<unsigned char>(shown[i]) == byte;
      if (!shownAsIs && !(byte < 0x20 && shown[i] == '?')) {
        return fail(number, "type [" + std::string(shown) + "] does not match its code " + std::string(code));
      }
    }
    auto size = decimalNumber(trimmed(len));
    if (!size) return fail(number, "len [" + std::string(len) + "] is not a number");
    entry.size = *size;
    auto attributes = hexNumber(attr);
    if (!attributes || attr.size() != 2) return fail(number, "attr [" + std::string(attr) + "] is not two hex digits");
    entry.attributes = static_cast<uint8_t>(*attributes);

    std::optional<uint32_t> status = pendingStatus_;
    pendingStatus_.reset();
    if (value.starts_with("NOT READABLE")) {
      bool withoutCode = false;
      if (!unreadableValue(value, number, entry, withoutCode)) return false;
      if (status) {
        // The driver call itself failed; the code printed after it is not the SMC's answer.
        entry.status = static_cast<int32_t>(*status);
        entry.result = 0;
      } else if (withoutCode) {
        defaultResultKeys_.emplace_back(key);
      }
    } else if (status) {
      return fail(number, "key " + excerpt(key) + " has a value after \"Unable to read\"");
    } else if (value == kRedactedValue) {
      entry.redacted = true;
      redactedKeys_.emplace_back(key);
    } else if (!hexValue(value, number, entry)) {
      return false;
    }
    if (entry.size > kMaxValueBytes && entry.result == 0 && entry.status == 0) {
      return fail(number, "len " + std::to_string(entry.size) + " is over 32 for a readable key");
    }
    entry.hidden = inHidden_;
    return addEntry(entry, key, number);
  }

  bool bracketedNonKeyLine(std::string_view line, std::size_t number) {
    if (line.starts_with(kUnableToRead)) {
      auto code = line.substr(kUnableToRead.size());
      auto status = hexNumber(code);
      if (!status || code.size() != 8 || *status == 0) {
        return fail(number, "status " + excerpt(code) + " is not 8 hex digits");
      }
      pendingStatus_ = *status;
      pendingLine_ = number;
      return true;
    }
    if (line.starts_with("Public keys (") && line.ends_with("):")) {
      auto count = decimalNumber(line.substr(13, line.size() - 15));
      if (!count || statedPublic_ || inHidden_) return fail(number, "unexpected " + excerpt(line));
      statedPublic_ = *count;
      statedPublicLine_ = number;
      return true;
    }
    if (line.starts_with("Hidden keys (") && line.ends_with("):")) {
      if (inHidden_) return fail(number, "a second hidden-keys section");
      inHidden_ = true;
      return true;
    }
    if (line.starts_with("macOS ") || line.starts_with("OS X ") || line.starts_with("Mac OS X ")) {
      if (!os_.empty() || !entries_.empty()) return fail(number, "unexpected system line " + excerpt(line));
      os_ = line;
      return true;
    }
    if (line == kRedactedSerialLine) {
      serialLineRedacted_ = true;
      return true;
    }
    return fail(number, "not a key line: " + excerpt(line));
  }

  bool unreadableValue(std::string_view value, std::size_t number, SmcEntry& entry, bool& withoutCode) {
    if (value == "NOT READABLE") {
      entry.result = kUnreadableResult;
      withoutCode = true;
      return true;
    }
    constexpr std::string_view kCode = "NOT READABLE, code ";
    auto code = value.substr(std::min(value.size(), kCode.size()));
    auto result = hexNumber(code);
    if (!value.starts_with(kCode) || !result || code.size() != 2) {
      return fail(number, "unreadable value " + excerpt(value) + " has no two-digit code");
    }
    if (*result == 0) return fail(number, "unreadable value with code 00");
    entry.result = static_cast<uint8_t>(*result);
    return true;
  }

  bool hexValue(std::string_view value, std::size_t number, SmcEntry& entry) {
    if (value.empty() || value.size() % 2 != 0) {
      return fail(number, "value " + excerpt(value) + " is not whole bytes in hex");
    }
    const std::size_t count = value.size() / 2;
    if (count != entry.size) {
      return fail(number,
                  "len " + std::to_string(entry.size) + " but the value has " + std::to_string(count) + " bytes");
    }
    if (count > kMaxValueBytes) return fail(number, "value of " + std::to_string(count) + " bytes is over 32");
    const auto bytes = bytesFromHex(value);
    if (!bytes) return fail(number, "value " + excerpt(value) + " has a bad hex digit");
    std::copy(bytes->begin(), bytes->end(), entry.bytes.begin());
    return true;
  }

  bool indentedLine(std::string_view line, std::size_t number) {
    Cursor in(line);
    std::string_view key, type;
    if (!in.literal("  ") || !in.take(4, key) || !in.literal("  [") || !in.take(4, type) || !in.literal("]")) {
      return fail(number, "not a key line: " + excerpt(line));
    }
    const std::string_view rest = in.rest();
    // The decoded text may hold anything, so the bytes are the last parenthesised part.
    const auto at = rest.rfind("(bytes ");
    if (!rest.starts_with("  ") || at == std::string_view::npos || !rest.ends_with(')')) {
      return fail(number, "not a key line: " + excerpt(line));
    }
    if (!checkKey(key, number)) return false;
    for (char c : type) {
      if (!isPrintable(c)) return fail(number, "type " + excerpt(type) + " is not printable");
    }
    SmcEntry entry;
    entry.key = packFourCc(key);
    entry.type = packFourCc(type);
    const std::string_view bytes = rest.substr(at + 7, rest.size() - at - 8);
    if (bytes.starts_with('[')) {
      // "[battery serial number redacted by collector; 21 bytes]"
      constexpr std::string_view kBytesEnd = " bytes]";
      auto semicolon = bytes.rfind("; ");
      std::optional<uint32_t> size;
      if (semicolon != std::string_view::npos && bytes.ends_with(kBytesEnd) &&
          bytes.find("redacted") != std::string_view::npos) {
        size = decimalNumber(bytes.substr(semicolon + 2, bytes.size() - semicolon - 2 - kBytesEnd.size()));
      }
      if (!size) return fail(number, "unreadable redaction marker " + excerpt(bytes));
      if (*size > kMaxValueBytes)
        return fail(number, "redacted value of " + std::to_string(*size) + " bytes is over 32");
      entry.size = *size;
      entry.redacted = true;
      redactedKeys_.emplace_back(key);
      return addEntry(entry, key, number);
    }
    std::size_t count = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 3, ++count) {
      auto byte = hexNumber(bytes.substr(i, 2));
      const bool separated = i + 2 == bytes.size() || (i + 2 < bytes.size() && bytes[i + 2] == ' ');
      if (!byte || i + 2 > bytes.size() || !separated) {
        return fail(number, "bytes " + excerpt(bytes) + " are not two-digit hex bytes");
      }
      if (count == kMaxValueBytes) return fail(number, "value of more than 32 bytes");
      entry.bytes[count] = static_cast<uint8_t>(*byte);
    }
    if (count == 0) return fail(number, "key " + excerpt(key) + " has no bytes");
    entry.size = static_cast<uint32_t>(count);
    return addEntry(entry, key, number);
  }

  bool checkKey(std::string_view key, std::size_t number) {
    for (char c : key) {
      if (!isPrintable(c)) return fail(number, "key " + excerpt(key) + " is not printable");
    }
    return true;
  }

  bool addEntry(const SmcEntry& entry, std::string_view key, std::size_t number) {
    auto [at, inserted] = lineOfKey_.emplace(entry.key, number);
    if (!inserted) {
      return fail(number, "duplicate key " + excerpt(key) + " (first on line " + std::to_string(at->second) + ")");
    }
    if (!entry.hidden) ++publicLines_;
    entries_.push_back(entry);
    return true;
  }

  std::optional<uint32_t> recordedKeyCount() const {
    for (const auto& entry : entries_) {
      if (entry.key == packFourCc("#KEY") && entry.size == 4 && !entry.redacted && entry.result == 0 &&
          entry.status == 0) {
        return (uint32_t{entry.bytes[0]} << 24) | (uint32_t{entry.bytes[1]} << 16) | (uint32_t{entry.bytes[2]} << 8) |
               entry.bytes[3];
      }
    }
    return std::nullopt;
  }

  std::string deriveModel(const DumpImportOptions& options) const {
    if (!options.model.empty()) return options.model;
    const std::string stated = label("Model id");
    if (auto model = modelIdPrefix(stated); !model.empty()) return std::string(model);
    const std::string base = baseName();
    const auto separator = base.find("__");
    if (separator == std::string::npos) return {};
    return std::string(modelIdPrefix(std::string_view(base).substr(0, separator)));
  }

  std::string deriveBrand(const DumpImportOptions& options) const {
    if (!options.brand.empty()) return options.brand;
    // "Apple A18 Pro, 2P+4E (per commit message)" names the chip "Apple A18 Pro".
    const std::string stated = label("Chip");
    std::string_view chip = stated;
    chip = trimmed(chip.substr(0, std::min(chip.find(','), chip.find('('))));
    if (!chip.empty()) return std::string(chip);
    if (format_ == Format::kBracketed) {
      // "Intel with T2 (SMC emulated by T2)": the class's first word is the maker.
      std::string klass = label("Class");
      return klass.substr(0, klass.find(' '));
    }
    return {};
  }

  std::shared_ptr<MachineProfile> finish(const DumpImportOptions& options) {
    auto profile = std::make_shared<MachineProfile>();
    const std::string model = deriveModel(options);
    const std::string brand = deriveBrand(options);
    const bool appleSilicon = brand.starts_with("Apple");
    std::string stem = baseName();
    if (auto dot = stem.rfind('.'); dot != std::string::npos && dot > 0) stem.resize(dot);
    profile->name = !options.name.empty() ? options.name : !model.empty() ? model : stem;

    profile->sysctl = nlohmann::json::object();
    if (!model.empty()) profile->sysctl["hw.model"] = model;
    if (!brand.empty()) profile->sysctl["machdep.cpu.brand_string"] = brand;
    if (appleSilicon) profile->sysctl["hw.optional.arm64"] = 1;

    nlohmann::json notes = nlohmann::json::array();
    if (!defaultResultKeys_.empty()) {
      notes.push_back("keys listed as NOT READABLE without a code are given result 0x85: " +
                      joined(defaultResultKeys_));
    }
    if (!redactedKeys_.empty()) {
      notes.push_back("the collector withheld the values of " + joined(redactedKeys_) + "; they read as zeros");
    }
    if (serialLineRedacted_) notes.push_back("a serial-number line the collector redacted is left out");
    if (auto recorded = recordedKeyCount(); recorded && *recorded > publicLines_) {
      notes.push_back("#KEY says " + std::to_string(*recorded) + " but the listing has " +
                      std::to_string(publicLines_) + " keys; the " + std::to_string(*recorded - publicLines_) +
                      " it could not read are absent, so their indexes are rejected");
    }
    if (appleSilicon) notes.push_back("the listing records no HID readings; the HID lists are empty");

    nlohmann::json provenance = nlohmann::json::object();
    provenance["dump"] = baseName();
    if (auto source = label("Source URL"); !source.empty()) provenance["source"] = source;
    provenance["header"] = header_;
    if (!os_.empty()) provenance["os"] = os_;
    provenance["notes"] = notes;
    profile->provenance = std::move(provenance);
    profile->smc = std::move(entries_);
    profile->hasHid = appleSilicon;
    if (appleSilicon) profile->ioreg = coreClustersOf(brand);

    // Whatever is imported must load again exactly; anything else is a fault of this importer.
    std::string loadError;
    if (!parseProfile(serializeProfile(*profile), baseName(), &loadError)) {
      failFile("the imported profile does not load: " + loadError);
      return nullptr;
    }
    return profile;
  }

  std::string_view fileName_;
  std::string* error_;
  Format format_ = Format::kUnknown;
  std::vector<std::string> header_;
  std::map<std::string, std::string, std::less<>> labels_;
  std::string os_;
  bool inHidden_ = false;
  bool serialLineRedacted_ = false;
  std::optional<uint32_t> statedPublic_;
  std::size_t statedPublicLine_ = 0;
  std::size_t publicLines_ = 0;
  std::optional<uint32_t> pendingStatus_;
  std::size_t pendingLine_ = 0;
  std::vector<std::string> defaultResultKeys_;
  std::vector<std::string> redactedKeys_;
  std::unordered_map<uint32_t, std::size_t> lineOfKey_;
  std::vector<SmcEntry> entries_;
};

}  // namespace

std::shared_ptr<MachineProfile> importDump(std::string_view text, std::string_view fileName,
                                           const DumpImportOptions& options, std::string* error) {
  try {
    return DumpImporter(fileName, error).run(text, options);
  } catch (const std::exception& e) {
    // Every piece is checked before use; this is for running out of memory.
    if (error != nullptr) *error = "dump '" + std::string(fileName) + "': " + e.what();
    return nullptr;
  }
}

}  // namespace corvane::platform
