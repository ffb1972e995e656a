// The fans a process has taken from the system, kept in a small file, so that every one of them
// goes back to the system when the process ends, and, should it die first, when the next one
// starts.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>

namespace corvane {

class HWSensorWriter;

// Fan numbers mapped to the speed to hand each back with (its minimum, in rpm). The file is
// rewritten whole on every change (written beside and renamed, so a crash leaves the old or the
// new list, never half of one). A file that cannot be read or parsed counts as an empty list.
// Thread-safe.
class HWFanHandBack {
 public:
  explicit HWFanHandBack(std::filesystem::path file);

  const std::filesystem::path& file() const { return file_; }
  // Records a write to `fan`: a forced speed adds the fan (with `handBackSpeed`), a return to
  // the system removes it. The file changes only when the list does.
  void noteWrite(std::uint64_t fan, std::uint64_t handBackSpeed, bool autoMode);
  // The fans taken and not yet handed back, as the file says now.
  std::map<std::uint64_t, std::uint64_t> takenFans() const;
  // Hands every recorded fan back to the system through `writer` (automatic mode at its
  // recorded speed) and forgets the fans that took it; returns how many did. Fans whose write
  // failed stay recorded for the next attempt.
  std::size_t handBackAll(HWSensorWriter& writer);

 private:
  void store(const std::map<std::uint64_t, std::uint64_t>& fans) const;

  std::filesystem::path file_;
  mutable std::mutex lock_;
};

}  // namespace corvane
