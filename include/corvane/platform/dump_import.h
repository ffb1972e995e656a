// Turning a recorded SMC listing of a real Mac into a machine profile.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "corvane/platform/machine_profile.h"

namespace corvane::platform {

// What the listing does not say, or what the caller wants said differently. Empty = derive it
// from the listing's header or file name.
struct DumpImportOptions {
  std::string name;   // the profile's name (--machine NAME)
  std::string model;  // hw.model, e.g. "MacBookPro16,1"
  std::string brand;  // machdep.cpu.brand_string; one starting with "Apple" means Apple silicon
};

// Reads a listing in either of the two recorded formats: bracketed lines
// ("[KEY] type [TYPE] 8-hex-digit-code len [n] attr [XX] -> value") or indented lines
// ("  KEY  [TYPE]  decoded  (bytes aa bb)"), each with its '#' header block. `fileName` names
// the listing in messages and provenance; the function reads no files. On any line it does not
// understand, returns null and sets `error` to a message with the file name and line number.
std::shared_ptr<MachineProfile> importDump(std::string_view text, std::string_view fileName,
                                           const DumpImportOptions& options, std::string* error);

}  // namespace corvane::platform
