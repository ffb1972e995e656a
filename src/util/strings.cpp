#include "corvane/util/strings.h"

#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <nlohmann/json.hpp>
#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/regex.h>

#include "util/icu_text.h"
#include "util/resources.h"
#include "util/hook.h"

namespace corvane::strings {

using icutext::toUnicode;
using icutext::toUtf8;

namespace {

// A compiled expression with its matcher over `input`. ICU's matcher keeps a reference to the
// text it was reset with, so the text lives here beside it.
class Match {
 public:
  Match(std::string_view text, std::string_view pattern, uint32_t flags) : input_(toUnicode(text)) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    pattern_.reset(icu::RegexPattern::compile(toUnicode(pattern), flags, parseError, status));
    if (U_FAILURE(status)) {
      pattern_.reset();
      return;
    }
    matcher_.reset(pattern_->matcher(input_, status));
    if (U_FAILURE(status)) matcher_.reset();
  }

  bool valid() const { return matcher_ != nullptr; }

  // The first match, or nullopt.
  std::optional<std::string> first() {
    if (!valid()) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    if (!matcher_->find(status) || U_FAILURE(status)) return std::nullopt;
    icu::UnicodeString group = matcher_->group(status);
    if (U_FAILURE(status)) return std::nullopt;
    return toUtf8(group);
  }

  // Every match replaced by the template `replacement`; nullopt on a bad template.
  std::optional<std::string> replaceAll(std::string_view replacement) {
    if (!valid()) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString result = matcher_->replaceAll(toUnicode(replacement), status);
    if (U_FAILURE(status)) return std::nullopt;
    return toUtf8(result);
  }

 private:
  icu::UnicodeString input_;
  std::unique_ptr<icu::RegexPattern> pattern_;
  std::unique_ptr<icu::RegexMatcher> matcher_;
};

// Spaces, tabs and line breaks, as the platform's white-space-and-newline set: Unicode's
// White_Space code points (every space separator is one). A table rather than ICU's property
// lookup: trimming runs in the daemon, which loads no ICU at all.
bool isWhitespaceOrNewline(char32_t c) {
  if (c <= 0x20) return c == 0x20 || (c >= 0x09 && c <= 0x0D);
  if (c < 0x85) return false;
  if (c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A)) return true;
  return c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// The code point of the well-formed UTF-8 sequence of `length` bytes at `bytes`, or nullopt.
std::optional<char32_t> decodeUtf8(const unsigned char* bytes, std::size_t length) {
  static constexpr char32_t kLeadMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (length == 0 || length > 4) return std::nullopt;
  if (length == 1) return bytes[0] < 0x80 ? std::optional<char32_t>(bytes[0]) : std::nullopt;
  // A lead byte of n bytes is n ones, then a zero.
  if (static_cast<unsigned>(bytes[0] >> (7 - length)) != ((1u << length) - 1) << 1) return std::nullopt;
  char32_t c = bytes[0] & kLeadMask[length];
  for (std::size_t i = 1; i < length; ++i) {
    if ((bytes[i] & 0xC0) != 0x80) return std::nullopt;
    c = (c << 6) | (bytes[i] & 0x3F);
  }
  if (c < kSmallest[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return std::nullopt;
  return c;
}

// Length of the white space at the start of `text` (trailingWhitespace: at its end), in whole
// code points. A byte of no well-formed sequence is not white space, so trimming stops there.
std::size_t leadingWhitespace(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (at + length > text.size()) break;
    const auto c = decodeUtf8(reinterpret_cast<const unsigned char*>(text.data()) + at, length);
    if (!c || !isWhitespaceOrNewline(*c)) break;
    at += length;
  }
  return at;
}

std::size_t trailingWhitespace(std::string_view text) {
  std::size_t end = text.size();
  while (end > 0) {
    // The last sequence starts at the last byte that is not a continuation byte.
    std::size_t start = end - 1;
    while (start > 0 && end - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
    const auto c = decodeUtf8(reinterpret_cast<const unsigned char*>(text.data()) + start, end - start);
    if (!c || !isWhitespaceOrNewline(*c)) break;
    end = start;
  }
  return text.size() - end;
}

const icu::number::LocalizedNumberFormatter& twoDigitFormatter() {
  static const icu::number::LocalizedNumberFormatter formatter =
      icu::number::NumberFormatter::withLocale(icu::Locale("en_US_POSIX"))
          .precision(icu::number::Precision::fixedFraction(2));
  return formatter;
}

// The strings tables, parsed once per language. A language without a table maps to null.
using Table = std::unordered_map<std::string, std::string>;

std::shared_ptr<const Table> loadTable(const std::string& language) {
  auto bytes = resources::find(language + ".strings.json");
  if (!bytes) return nullptr;
  auto table = std::make_shared<Table>();
  nlohmann::json json = nlohmann::json::parse(*bytes, nullptr, /*allow_exceptions=*/false);
  if (json.is_object()) {
    for (const auto& [key, value] : json.items()) {
      if (value.is_string()) table->emplace(key, value.get<std::string>());
    }
  }
  return table;
}

std::shared_ptr<const Table> tableForLanguage(const std::string& language) {
  static std::mutex lock;
  static std::map<std::string, std::shared_ptr<const Table>> tables;
  std::lock_guard guard(lock);
  auto it = tables.find(language);
  if (it == tables.end()) it = tables.emplace(language, loadTable(language)).first;
  return it->second;
}

// The language of the product's own (development) table, used when no language is chosen.
constexpr const char* kDevelopmentLanguage = "en";

Hook<std::string>& language() {
  static Hook<std::string> hook;
  return hook;
}

std::string currentLanguage() { return language().get(); }

}  // namespace

std::string trimWhitespace(std::string_view text) {
  text.remove_prefix(leadingWhitespace(text));
  text.remove_suffix(trailingWhitespace(text));
  return condenseWhitespace(text);
}

bool isBlank(std::string_view text) { return trimWhitespace(text).empty(); }

std::string replace(std::string_view text, std::string_view target, std::string_view replacement) {
  if (target.empty()) return std::string(text);
  std::string out;
  out.reserve(text.size());
  std::size_t position = 0;
  while (true) {
    std::size_t found = text.find(target, position);
    if (found == std::string_view::npos) break;
    out.append(text.substr(position, found - position));
    out.append(replacement);
    position = found + target.size();
  }
  out.append(text.substr(position));
  return out;
}

std::string getPattern(std::string_view text, std::string_view pattern) {
  Match match(text, pattern, 0);
  auto first = match.first();
  return first ? trimWhitespace(*first) : std::string();
}

std::string trimPattern(std::string_view text, std::string_view pattern) {
  Match match(text, pattern, 0);
  return match.replaceAll("").value_or(std::string(text));
}

std::string removedRegexMatchesWithPattern(std::string_view text, std::string_view pattern,
                                           std::string_view replaceWith) {
  Match match(text, pattern, UREGEX_CASE_INSENSITIVE);
  return match.replaceAll(replaceWith).value_or(std::string(text));
}

std::string condenseWhitespace(std::string_view text) {
  // One pass, no expression engine: the result equals replacing "  " by " " until none is left.
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == ' ' && !out.empty() && out.back() == ' ') continue;
    out.push_back(c);
  }
  return out;
}

std::string removedOccurrencesIgnoringCase(std::string_view text, std::initializer_list<std::string_view> parts) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  const auto startsHere = [&](std::size_t at, std::string_view part) {
    if (part.empty() || part.size() > text.size() - at) return false;
    for (std::size_t i = 0; i < part.size(); ++i) {
      if (lower(text[at + i]) != lower(part[i])) return false;
    }
    return true;
  };
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    std::size_t matched = 0;
    for (const auto part : parts) {
      if (startsHere(at, part)) {
        matched = part.size();
        break;
      }
    }
    if (matched > 0) {
      at += matched;
    } else {
      out.push_back(text[at++]);
    }
  }
  return out;
}

std::string formattedName(std::string_view text) { return trimWhitespace(replace(text, "%@", "")); }

std::string formattedForCSVContent(std::string_view text) { return replace(text, ",", ";"); }

std::string formattedStringFromNumber(std::optional<double> number) {
  if (!number) return "0";
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString formatted = twoDigitFormatter().formatDouble(*number, status).toString(status);
  if (U_FAILURE(status)) return "0";
  return toUtf8(formatted);
}

std::string localizedStringForKey(const std::string& key) {
  std::string language = currentLanguage();
  if (!language.empty()) return localizedStringForKey(key, language).value_or(std::string());
  return localizedStringForKey(key, kDevelopmentLanguage).value_or(key);
}

std::optional<std::string> localizedStringForKey(const std::string& key, const std::string& language) {
  auto table = tableForLanguage(language);
  if (!table) return std::nullopt;
  auto it = table->find(key);
  return it != table->end() ? it->second : key;
}

void setCurrentLanguageProvider(std::function<std::string()> provider) { language().set(std::move(provider)); }

}  // namespace corvane::strings
