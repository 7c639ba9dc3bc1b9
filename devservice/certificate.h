// The service's own certificate: self-signed, for this machine only.
//
// Nobody trusts it until its file is given to a trust store, as "certutil -A -t CP,," does.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quenmoor {

struct Certificate {
    std::filesystem::path certificateFile; // PEM
    std::filesystem::path keyFile;         // PEM, readable by its owner only
};

// The certificate in `folder` for "localhost", 127.0.0.1 and ::1: the one that lies there while it
// is whole and good for another week, else a new one, good for a year. Makes the folder when it is
// missing. Nothing, and the reason in `error`, when the files cannot be written. Two programs may
// not do this in one folder at the same time.
[[nodiscard]] std::optional<Certificate> ensureCertificate(const std::filesystem::path& folder,
                                                           std::string& error);

} // namespace quenmoor
