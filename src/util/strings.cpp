#include "corvane/util/strings.h"

#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <nlohmann/json.hpp>
#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>

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

// Spaces, tabs and line breaks, as the platform's white-space-and-newline set.
bool isWhitespaceOrNewline(UChar32 c) { return u_isUWhiteSpace(c) || u_charType(c) == U_SPACE_SEPARATOR; }

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
  icu::UnicodeString unicode = toUnicode(text);
  int32_t start = 0;
  int32_t end = unicode.length();
  while (start < end && isWhitespaceOrNewline(unicode.char32At(start))) start = unicode.moveIndex32(start, 1);
  while (end > start) {
    int32_t previous = unicode.moveIndex32(end, -1);
    if (!isWhitespaceOrNewline(unicode.char32At(previous))) break;
    end = previous;
  }
  std::string trimmed = toUtf8(unicode.tempSubStringBetween(start, end));
  // Collapse runs of blanks in one pass: the result equals replacing "  " by " " until none is left.
  std::string out;
  out.reserve(trimmed.size());
  for (char c : trimmed) {
    if (c == ' ' && !out.empty() && out.back() == ' ') continue;
    out.push_back(c);
  }
  return out;
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

std::string condenseWhitespace(std::string_view text) { return removedRegexMatchesWithPattern(text, "  +", " "); }

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
