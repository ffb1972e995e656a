// Parsers of the POSIX/XDG files that name the user's folders and the machine's groups. Pure
// functions over the files' text, so tests feed them tables; the readers take the file's path.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::platform::posix {

// The folder that `user-dirs.dirs` text names for `variable` (e.g. "XDG_DOCUMENTS_DIR"): a
// quoted "$HOME/..." (relative to `home`) or an absolute path; the last assignment wins.
// Nothing when the variable is missing or its value is neither form.
std::optional<std::filesystem::path> parseUserDir(std::string_view userDirsText, std::string_view variable,
                                                  const std::filesystem::path& home);

// The group names of `/etc/group` text, in file order (comments, blank and malformed lines
// skipped).
std::vector<std::string> parseGroupNames(std::string_view groupText);

// The administrators' group among `groups`: "sudo" when present, else "wheel", else "admin".
std::string chooseAdminGroup(const std::vector<std::string>& groups);

// chooseAdminGroup over the group file at `groupFile` ("admin" when it cannot be read).
std::string adminGroupFromFile(const std::filesystem::path& groupFile);

}  // namespace corvane::platform::posix
