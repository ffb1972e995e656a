#include "platform/linux/applesmc_driver.h"

#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>

#include "corvane/platform/text.h"
#include "platform/posix/process.h"
#include "platform/smc_statuses.h"

namespace corvane::platform {
namespace {

using text::packFourCc;

constexpr uint32_t kKeyCountKey = packFourCc("#KEY");
// An attribute is at most a page; anything longer is not the driver talking.
constexpr std::size_t kLongestAttribute = 4096;
constexpr uint32_t kMostKeys = 1 << 16;
// The characters that stand for fans 0-19 in fan keys; fan attributes count from 1.
constexpr std::string_view kFanCharacters = "0123456789ABCDEFGHIJ";

class FolderFiles final : public ApplesmcFiles {
 public:
  explicit FolderFiles(std::filesystem::path root) : root_(std::move(root)) {}

  int read(std::string_view name, std::string& out) override {
    const posix::UniqueFd fd(::open((root_ / name).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (fd.get() < 0) return errno;
    out.clear();
    char buffer[kLongestAttribute];
    for (;;) {
      const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return errno;
      if (got == 0) return 0;
      out.append(buffer, static_cast<std::size_t>(got));
      if (out.size() > kLongestAttribute) return EFBIG;
    }
  }

  int write(std::string_view name, std::string_view text) override {
    const posix::UniqueFd fd(::open((root_ / name).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOFOLLOW));
    if (fd.get() < 0) return errno;
    // An attribute takes its value in one write; a short one would leave half a number.
    const ssize_t put = ::write(fd.get(), text.data(), text.size());
    if (put < 0) return errno;
    return static_cast<std::size_t>(put) == text.size() ? 0 : EIO;
  }

 private:
  std::filesystem::path root_;
};

kern_return_t statusOf(int error) {
  return error == EACCES || error == EPERM ? kIOReturnNotPrivileged : kIOReturnIOError;
}

std::string_view withoutLineEnd(std::string_view text) {
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  return text;
}

// A key or type as the driver prints it; one shorter than four characters lost its blanks. A
// type may hold NUL characters, which stay.
std::optional<uint32_t> fourCc(std::string_view text) {
  text = withoutLineEnd(text);
  if (text.empty() || text.size() > 4) return std::nullopt;
  std::string padded(text);
  padded.resize(4, ' ');
  return packFourCc(padded);
}

std::optional<uint32_t> decimal(std::string_view text) {
  text = withoutLineEnd(text);
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

// The number a fan write carries, in the encodings the fan writer produces: unsigned big-endian
// integers, fpe2 (big-endian, two fraction bits) and float (lowest byte first).
std::optional<double> fanNumber(uint32_t type, const uint8_t* bytes, uint32_t size) {
  uint32_t big = 0;
  for (uint32_t i = 0; i < size && i < 4; ++i) big = (big << 8) | bytes[i];
  if ((type == packFourCc("ui8 ") && size == 1) || (type == packFourCc("ui16") && size == 2) ||
      (type == packFourCc("ui32") && size == 4)) {
    return big;
  }
  if (type == packFourCc("fpe2") && size == 2) return big / 4.0;
  if (type == packFourCc("flt ") && size == 4) {
    const uint32_t little = bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
    return static_cast<double>(std::bit_cast<float>(little));
  }
  return std::nullopt;
}

}  // namespace

std::shared_ptr<ApplesmcFiles> applesmcFolder(std::filesystem::path root) {
  return std::make_shared<FolderFiles>(std::move(root));
}

bool applesmcPresent(const std::filesystem::path& root) {
  std::error_code ec;
  return std::filesystem::is_regular_file(root / "key_count", ec);
}

ApplesmcDriver::ApplesmcDriver(std::shared_ptr<ApplesmcFiles> files) : files_(std::move(files)) {}

SmcDriver::OpenResult ApplesmcDriver::open() {
  std::lock_guard guard(lock_);
  if (!walked_) {
    const kern_return_t status = walk();
    if (status == kIOReturnNotFound) return {OpenResult::Stage::noDevice, 0};
    if (status != 0) return {OpenResult::Stage::openFailed, status};
    walked_ = true;
  }
  users_.fetch_add(1);
  return {};
}

kern_return_t ApplesmcDriver::close() {
  std::lock_guard guard(lock_);
  if (users_.load() <= 0) return kIOReturnNotOpen;
  users_.fetch_sub(1);
  return 0;
}

kern_return_t ApplesmcDriver::walk() {
  std::string text;
  if (const int error = files_->read("key_count", text)) return error == ENOENT ? kIOReturnNotFound : statusOf(error);
  const auto count = decimal(text);
  // An SMC has a few thousand keys; a count far beyond that is not one to walk.
  if (!count || *count > kMostKeys) return kIOReturnIOError;
  keys_.assign(*count, Key{});
  byKey_.clear();
  for (uint32_t index = 0; index < *count; ++index) {
    Key key;
    kern_return_t status = describe(index, key);
    if (status == kIOReturnBusy) status = describe(index, key);
    // Without the right to select, no key can be read at all; an index that will not describe
    // itself is only one key missing.
    if (status == kIOReturnNotPrivileged) return status;
    if (status != 0) continue;
    keys_[index] = key;
    byKey_.emplace(key.key, index);
  }
  keyCount_ = {kKeyCountKey, packFourCc("ui32"), 4, 0};
  return 0;
}

kern_return_t ApplesmcDriver::describe(uint32_t index, Key& key) {
  const std::string selected = std::to_string(index);
  if (const int error = files_->write("key_at_index", selected)) return statusOf(error);
  std::string name, type, length, now;
  for (const auto& [attribute, into] : {std::pair{"key_at_index_name", &name}, {"key_at_index_type", &type},
                                        {"key_at_index_data_length", &length}, {"key_at_index", &now}}) {
    if (const int error = files_->read(attribute, *into)) return statusOf(error);
  }
  // The selection read back tells whether another process moved it while this one looked.
  if (decimal(now) != index) return kIOReturnBusy;
  const auto packedName = fourCc(name);
  const auto packedType = fourCc(type);
  const auto size = decimal(length);
  // A size beyond what one record carries is still the key's size; reading it is refused later.
  if (!packedName || !packedType || !size) return kIOReturnIOError;
  key = {*packedName, *packedType, *size, index};
  return 0;
}

const ApplesmcDriver::Key* ApplesmcDriver::find(uint32_t key) const {
  const auto it = byKey_.find(key);
  if (it != byKey_.end()) return &keys_[it->second];
  return key == kKeyCountKey ? &keyCount_ : nullptr;
}

kern_return_t ApplesmcDriver::call(uint32_t selector, const SMCKeyData& input, SMCKeyData& output) {
  std::memset(&output, 0, sizeof output);
  if (users_.load() <= 0) return kIOReturnNotOpen;
  if (selector != kSMCUserClientSelector) return kIOReturnUnsupported;
  if (input.data8 == kSMCCmdGetKeyFromIndex) {
    if (input.data32 >= keys_.size() || keys_[input.data32].key == 0) {
      output.result = kSMCResultKeyNotFound;
    } else {
      output.key = keys_[input.data32].key;
    }
    return 0;
  }
  if (input.data8 != kSMCCmdGetKeyInfo && input.data8 != kSMCCmdReadKey && input.data8 != kSMCCmdWriteKey) {
    output.result = kSMCResultBadArgument;
    return 0;
  }
  const Key* key = find(input.key);
  if (key == nullptr) {
    output.result = kSMCResultKeyNotFound;
    return kIOReturnNotFound;
  }
  if (input.data8 == kSMCCmdGetKeyInfo) {
    output.key = key->key;
    output.keyInfo.dataSize = key->size;
    output.keyInfo.dataType = key->type;
    return 0;
  }
  if (input.data8 == kSMCCmdWriteKey) {
    if (input.keyInfo.dataSize != key->size) return kIOReturnBadArgument;
    return write(*key, input);
  }
  if (input.keyInfo.dataSize > sizeof output.bytes) return kIOReturnBadArgument;
  output.key = key->key;
  output.keyInfo.dataSize = key->size;
  if (input.keyInfo.dataSize != key->size) {
    output.result = kSMCResultBadArgument;
    return 0;
  }
  if (key == &keyCount_) {
    const auto count = static_cast<uint32_t>(keys_.size());
    const uint8_t bytes[] = {static_cast<uint8_t>(count >> 24), static_cast<uint8_t>(count >> 16),
                             static_cast<uint8_t>(count >> 8), static_cast<uint8_t>(count)};
    std::memcpy(output.bytes, bytes, sizeof bytes);
    return 0;
  }
  return readData(*key, output.bytes);
}

kern_return_t ApplesmcDriver::readData(const Key& key, uint8_t* bytes) {
  const std::string selected = std::to_string(key.index);
  std::lock_guard guard(lock_);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (const int error = files_->write("key_at_index", selected)) return statusOf(error);
    std::string data, name;
    if (const int error = files_->read("key_at_index_data", data)) return statusOf(error);
    if (const int error = files_->read("key_at_index_name", name)) return statusOf(error);
    // Another process may have selected between the two: then the name (or the size) differs.
    if (fourCc(name) == key.key && data.size() == key.size) {
      std::memcpy(bytes, data.data(), key.size);
      return 0;
    }
  }
  return kIOReturnBusy;
}

kern_return_t ApplesmcDriver::put(const std::string& name, const std::string& text) {
  const int error = files_->write(name, text);
  if (error == 0) return 0;
  return error == ENOENT ? kIOReturnNotFound : statusOf(error);
}

kern_return_t ApplesmcDriver::write(const Key& key, const SMCKeyData& input) {
  const std::string name = text::unpackFourCc(key.key);
  const auto value = fanNumber(key.type, input.bytes, key.size);
  if (name == "FS! ") {
    if (!value) return kIOReturnBadArgument;
    // One bit per fan, set while the fan is forced; fans past the last attribute have no bit.
    const auto mask = static_cast<uint32_t>(*value);
    for (uint32_t fan = 0; fan < 16; ++fan) {
      const kern_return_t status =
          put("fan" + std::to_string(fan + 1) + "_manual", ((mask >> fan) & 1u) != 0 ? "1\n" : "0\n");
      if (status == kIOReturnNotFound && fan > 0) break;
      if (status != 0) return status;
    }
    return 0;
  }
  const std::size_t fan = kFanCharacters.find(name[1]);
  const std::string suffix = name.substr(2);
  if (name[0] != 'F' || fan == std::string_view::npos || (suffix != "Tg" && suffix != "Mn" && suffix != "Md")) {
    return kIOReturnNotWritable;
  }
  if (!value || !std::isfinite(*value) || *value < 0 || *value > 1e6) return kIOReturnBadArgument;
  const std::string prefix = "fan" + std::to_string(fan + 1);
  if (suffix == "Md") return put(prefix + "_manual", *value != 0 ? "1\n" : "0\n");
  return put(prefix + (suffix == "Tg" ? "_output" : "_min"), std::to_string(std::lround(*value)) + "\n");
}

}  // namespace corvane::platform
