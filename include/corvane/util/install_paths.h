// Where the product and its companions live: the file manager's extension of the product.
//
// Every path comes from the installed platform's file locations (platform::current().files()).
// Paths are strings, as the product's callers join them as strings; the companions' suffixes
// ("/Corvane SMC", "/Corvane Menu.app", "/Corvane Helper.app") are appended as text. Thread-safe.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace corvane::files {

// The user's Documents folder.
std::string documentsPath();
// The product's folder "Corvane" in the user's Application Support folder, created (with
// intermediate folders; a failure is ignored) when missing; nothing when the system names no
// Application Support folder.
std::optional<std::string> applicationSupportPath();
// The folder of the product's former name, "Heat Warden", beside it (never created).
std::optional<std::string> oldApplicationSupportPath();
// The app-group container shared by every process of the product.
std::filesystem::path appGroupURL();
// The app-group container of earlier system versions, where the system has moved it.
std::optional<std::filesystem::path> legacyAppGroupURL();

// Where the SMC helper tool ships: beside the main executable.
std::string smcExeSrcPath();
// Where the SMC helper tool runs from, in Application Support; nothing with no such folder.
std::optional<std::string> smcExePath();
// Where the menu-bar application ships, and where it runs from.
std::string menuAppSrcPath();
std::optional<std::string> menuAppPath();
// Where the helper application ships, and where it runs from.
std::string helperAppSrcPath();
std::optional<std::string> helperAppPath();

// Where the application should be installed: the user's first Applications folder when it is a
// folder holding at least one ".app" (then *inUserFolder = true), else the last machine-wide
// Applications folder (*inUserFolder = false); symbolic links resolved. `inUserFolder` may be
// null.
std::string preferredInstallLocation(bool* inUserFolder);

}  // namespace corvane::files
