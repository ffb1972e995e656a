// A Mac running Linux as its applesmc driver shows it, made from a recorded machine: the driver's
// files in a folder (key count, fans), and the one thing a folder cannot do, the
// key selected by index, played here.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fstream>
#include <map>

#include "corvane/platform/machine_profile.h"
#include "corvane/platform/text.h"
#include "corvane/smc/smc_value.h"
#include "platform/linux/applesmc_driver.h"

namespace corvane::testing {

class ApplesmcFixture final : public platform::ApplesmcFiles {
 public:
  // Writes the files for `profile` into `root`; the folder alone shows the first key selected.
  ApplesmcFixture(const platform::MachineProfile& profile, const std::filesystem::path& root)
      : folder_(platform::applesmcFolder(root)), root_(root) {
    std::filesystem::create_directories(root);
    std::map<std::string, long> numbers;
    for (const auto& entry : profile.smc) {
      if (entry.hidden) continue;
      listed_.push_back(entry);
      const auto number = smc::simValueCodec().decode(entry.type, entry.size, entry.bytes.data());
      if (number) numbers[text::unpackFourCc(entry.key)] = std::lround(*number);
    }
    put("key_count", std::to_string(listed_.size()));
    for (char fan = '0'; fan <= '9' && numbers.count(std::string("F") + fan + "Ac") != 0; ++fan) {
      for (const auto& [file, suffix] : {std::pair{"input", "Ac"}, {"min", "Mn"}, {"max", "Mx"}, {"output", "Tg"},
                                         {"manual", "Md"}}) {
        put("fan" + std::to_string(fan - '0' + 1) + "_" + file, std::to_string(numbers[std::string("F") + fan + suffix]));
      }
    }
    for (const char* name : {"key_at_index", "key_at_index_name", "key_at_index_type", "key_at_index_data_length",
                             "key_at_index_data"}) {
      std::ofstream(root_ / name, std::ios::binary) << attribute(name);
    }
  }

  // Another process selects index `other` right after each of the next `times` data reads.
  void interfere(int times, std::size_t other) {
    interferences_ = times;
    other_ = other;
  }

  int read(std::string_view name, std::string& out) override {
    if (!name.starts_with("key_at_index")) return folder_->read(name, out);
    const platform::SmcEntry& entry = listed_[selected_];
    // A key the SMC refuses to read has no data to show.
    if (name == "key_at_index_data" && (entry.result != 0 || entry.status != 0)) return EIO;
    out = attribute(name);
    if (name == "key_at_index_data" && interferences_ > 0) {
      --interferences_;
      selected_ = other_;
    }
    return 0;
  }
  int write(std::string_view name, std::string_view text) override {
    if (name != "key_at_index") return folder_->write(name, text);
    const std::size_t index = std::stoul(std::string(text));
    if (index >= listed_.size()) return EINVAL;
    selected_ = index;
    return 0;
  }

 private:
  void put(const std::string& name, const std::string& text) { std::ofstream(root_ / name) << text << "\n"; }
  // What the selection attribute `name` reads now.
  std::string attribute(std::string_view name) const {
    const platform::SmcEntry& entry = listed_[selected_];
    if (name == "key_at_index_name") return text::unpackFourCc(entry.key) + "\n";
    if (name == "key_at_index_type") return text::unpackFourCc(entry.type) + "\n";
    if (name == "key_at_index_data_length") return std::to_string(entry.size) + "\n";
    if (name == "key_at_index_data") {
      return {reinterpret_cast<const char*>(entry.bytes.data()), std::min<std::size_t>(entry.size, 32)};
    }
    return std::to_string(selected_) + "\n";
  }

  std::shared_ptr<platform::ApplesmcFiles> folder_;
  std::filesystem::path root_;
  std::vector<platform::SmcEntry> listed_;
  std::size_t selected_ = 0;
  int interferences_ = 0;
  std::size_t other_ = 0;
};

}  // namespace corvane::testing
