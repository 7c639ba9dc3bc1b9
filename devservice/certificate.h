// The service's certificate: self-signed, for this machine only.
//
// A client accepts it only after the file was added to its trust store, for example with
// "certutil -A -t CP,,".
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quenmoor {

struct Certificate {
    std::filesystem::path certificateFile; // PEM
    std::filesystem::path keyFile;         // PEM, readable by its owner only
};

// Returns the certificate in `folder` for "localhost", 127.0.0.1 and ::1. Creates one that is valid
// for a year, and the folder, unless a matching pair of files exists that is valid for another
// week. Returns nothing, with the reason in `error`, if the files cannot be written. Two processes
// must not call this for one folder at the same time.
[[nodiscard]] std::optional<Certificate> ensureCertificate(const std::filesystem::path& folder,
                                                           std::string& error);

} // namespace quenmoor
