// Display questions, JSON loading, graph axis labels and build numbers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/util/dates.h"

namespace corvane {

// One label of a graph's time axis.
struct HWAxisLabel {
  double time = 0.0;  // the instant labelled, in seconds since 1970
  std::string label;  // its text, "--" when it cannot be formatted
};

// Stateless; every method is thread-safe.
class HWUtils {
 public:
  // True when at least one active display (of the first 32) is not the built-in one.
  static bool isExternalDisplayConnected();

  // The number of active displays (at most 32).
  static long numOfDisplays();

  // `text` parsed as JSON; nothing when it is not a JSON array or object.
  static std::optional<nlohmann::json> jsonFromString(const std::string& text);

  // The JSON resource "<name>.json" compiled into the library; nothing (with a log line) when
  // it is missing or does not parse.
  static std::optional<nlohmann::json> loadJSONArrayFromFileName(const std::string& name);

  // The labels of a graph's time axis ending at `date`, oldest first. `timeRange` 0 (hour),
  // 1 (day), 2 (week) or 3 (the one-minute CPU series) sets the step and the format; any other
  // value is treated as a week of times of day.
  static std::vector<HWAxisLabel> xAxisWithCurrentDate(dates::Date date, unsigned long timeRange);
  // The time of the first of those labels, without formatting any: what a graph of
  // `timeRange` ending at `date` still shows starts there.
  static double xAxisStartWithCurrentDate(dates::Date date, unsigned long timeRange);

  // The integer value of "CFBundleVersion" in the information property list of the application
  // bundle at `appPath` ("<appPath>/Contents/Info.plist", XML or binary); 0 when missing.
  static long appBuildNumberAtPath(const std::string& appPath);

  // The same for the application bundle around the running executable; 0 outside a bundle.
  static long appBuildNumber();
};

}  // namespace corvane
