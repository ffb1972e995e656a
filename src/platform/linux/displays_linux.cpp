#include "platform/linux/displays_linux.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "corvane/platform/text.h"
#include "platform/displays_backends.h"
#include "platform/posix/file_lock.h"

namespace corvane::platform {
namespace drm {
namespace {

// A sysfs value: the text before any NUL, without surrounding blanks and line ends.
std::string_view trim(std::string_view value) { return text::trimmed(value.substr(0, value.find('\0'))); }

class DrmDisplays final : public Displays {
 public:
  explicit DrmDisplays(std::filesystem::path sysRoot) : sysRoot_(std::move(sysRoot)) {}

  std::vector<Display> activeDisplays(std::size_t capacity) const override {
    auto displays = scanDisplays(sysRoot_);
    if (displays.size() > capacity) displays.resize(capacity);
    return displays;
  }

 private:
  std::filesystem::path sysRoot_;
};

}  // namespace

bool isBuiltInConnector(std::string_view connectorType) {
  return connectorType == "eDP" || connectorType == "LVDS" || connectorType == "DSI";
}

std::optional<Display> displayOnConnector(std::string_view entryName, std::string_view status) {
  // "card<N>-<type>-<index>"; the type may itself hold a dash ("HDMI-A", "DP-MST").
  if (!entryName.starts_with("card")) return std::nullopt;
  const auto dash = entryName.find('-');
  if (dash == std::string_view::npos || dash == 4 ||
      !std::all_of(entryName.begin() + 4, entryName.begin() + static_cast<std::ptrdiff_t>(dash),
                   [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  const std::string_view connector = entryName.substr(dash + 1);
  const auto lastDash = connector.rfind('-');
  if (connector.empty() || lastDash == std::string_view::npos || lastDash == 0) return std::nullopt;
  if (trim(status) != "connected") return std::nullopt;
  Display display;
  display.builtIn = isBuiltInConnector(connector.substr(0, lastDash));
  display.name = std::string(connector);
  return display;
}

std::vector<Display> scanDisplays(const std::filesystem::path& sysRoot) {
  const auto folder = sysRoot / "class" / "drm";
  std::vector<std::string> entries;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    entries.push_back(it->path().filename().string());
  }
  std::sort(entries.begin(), entries.end());

  std::vector<Display> displays;
  for (const auto& entry : entries) {
    const auto status = posix::readWholeFile(folder / entry / "status");
    if (!status) continue;
    auto display = displayOnConnector(entry, *status);
    if (!display) continue;
    display->identifier = static_cast<uint32_t>(displays.size() + 1);
    if (auto id = posix::readWholeFile(folder / entry / "connector_id")) {
      const std::string_view text = trim(*id);
      uint32_t value = 0;
      const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), value);
      if (error == std::errc() && at == text.data() + text.size()) display->identifier = value;
    }
    displays.push_back(std::move(*display));
  }
  return displays;
}

std::shared_ptr<Displays> makeDisplays(std::filesystem::path sysRoot) {
  return std::make_shared<DrmDisplays>(std::move(sysRoot));
}

}  // namespace drm

std::shared_ptr<Displays> nativeDisplays() { return drm::makeDisplays("/sys"); }

}  // namespace corvane::platform
