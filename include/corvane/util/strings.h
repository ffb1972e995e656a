// Small string helpers the whole product relies on: trimming, regular expressions (ICU, the
// platform's own engine), number formatting and localised message texts.
//
// Texts are UTF-8. Regular-expression patterns follow ICU syntax; an invalid pattern matches
// nothing. Thread-safe unless noted.
#pragma once

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::strings {

// `text` without leading and trailing white space and newlines (Unicode's White_Space), with
// every run of spaces collapsed to one. Bytes that are not UTF-8 are kept as they are.
std::string trimWhitespace(std::string_view text);

// True when `text` is empty once trimmed.
bool isBlank(std::string_view text);

// Every occurrence of `target` replaced by `replacement` (an empty target changes nothing).
std::string replace(std::string_view text, std::string_view target, std::string_view replacement);

// The first match of `pattern` in `text`, trimmed; "" when nothing matches.
std::string getPattern(std::string_view text, std::string_view pattern);

// `text` with every match of `pattern` removed.
std::string trimPattern(std::string_view text, std::string_view pattern);

// Every match of `pattern` (case-insensitive) replaced by the template `replaceWith` ("$1"
// names a capture group).
std::string removedRegexMatchesWithPattern(std::string_view text, std::string_view pattern,
                                           std::string_view replaceWith);

// `text` with every occurrence of any of `parts` removed, ASCII letters compared without case.
// At each place the first part that matches goes, as with a regular expression of alternatives;
// the plain-text counterpart of removedRegexMatchesWithPattern for fixed words, which needs no
// expression engine.
std::string removedOccurrencesIgnoringCase(std::string_view text, std::initializer_list<std::string_view> parts);
// Every run of two or more spaces replaced by one space.
std::string condenseWhitespace(std::string_view text);

// A display name made from a format text: every "%@" removed, then trimmed.
std::string formattedName(std::string_view text);

// `text` made safe as one comma-separated field: every "," becomes ";".
std::string formattedForCSVContent(std::string_view text);

// `number` with exactly two fraction digits in the "en_US_POSIX" decimal style, which has no
// grouping (1234.5 → "1234.50"); "0" when there is no number.
std::string formattedStringFromNumber(std::optional<double> number);

// The text of message key `key` in the current language (see setCurrentLanguageProvider);
// with no current language, the English text. As with the platform's bundles, a key the table
// lacks gives the key itself; a current language without a table gives "".
std::string localizedStringForKey(const std::string& key);

// The text of `key` in `language` (e.g. "en", "de"); nullopt when the product has no strings
// table for that language, the key itself when the table lacks it.
std::optional<std::string> localizedStringForKey(const std::string& key, const std::string& language);

// Installs where the current language comes from (the settings store does, at start). The
// default answers "" (the English table). Call before other threads use localised texts.
void setCurrentLanguageProvider(std::function<std::string()> provider);

}  // namespace corvane::strings
