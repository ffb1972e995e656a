// The PCI display controllers of a Linux host, standing in for the Mac's "IOPCIDevice" entries.
// The parsers are pure functions over the files' text; the roots are parameters so tests use
// fixture trees.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/io_registry.h"

namespace corvane::platform::pcisys {

// True for a sysfs "class" text of a display controller (base class 0x03).
bool isDisplayControllerClass(std::string_view classText);

// A sysfs "vendor" or "device" text ("0x1002\n") as a number; nullopt when malformed.
std::optional<uint16_t> parsePciId(std::string_view text);

// The names the pci.ids database gives a vendor and one of its devices; each nullopt when the
// database does not list it.
struct PciNames {
  std::optional<std::string> vendor;
  std::optional<std::string> device;
};
PciNames lookupPciIds(std::string_view pciIds, uint16_t vendor, uint16_t device);

// The model text of a device: "<vendor> <device>" when both names are known, else
// "<vendor name or 0xVVVV> device 0xDDDD".
std::string pciModelText(const PciNames& names, uint16_t vendor, uint16_t device);

// Where the host's files are; tests point these at fixture trees.
struct Roots {
  std::filesystem::path sys = "/sys";
  // The pci.ids databases to try, in order; the first one that can be read is used.
  std::vector<std::filesystem::path> pciIds = {"/usr/share/misc/pci.ids",
                                               "/usr/share/hwdata/pci.ids"};
};

// The display controllers under `roots.sys`/bus/pci/devices, in address order, each with its
// model text as the "model" bytes. A host without a PCI bus has none; nullopt when the device
// folder exists but cannot be listed.
std::optional<std::vector<PciDevice>> readDisplayControllers(const Roots& roots);

// An I/O registry over `roots`.
std::shared_ptr<IORegistry> makeIORegistry(Roots roots);

}  // namespace corvane::platform::pcisys
