// The address of the service's upload page, without and with the file that it is to ask about.
//
// The page reads its query byte for byte: what stands there is fixed by the service, also where a
// URL library would write it another way.
#pragma once

#include <QString>
#include <QUrl>
#include <cstdint>
#include <optional>
#include <string>

namespace quenmoor {

// The page on `host`, always over https; port 443 is left out.
QString baseUrl(const QString& host, std::uint16_t port);

// The page for one file: `baseUrl`, then "?session=", "&filename=" and "&size=". `session` goes in
// as it stands, an absent one as "(null)". `filename` is bytes, UTF-8 or not, `size` is in bytes.
//
// A "#" in the session begins a fragment, so that the service does not see what follows; nothing
// in it can change the host. Two things go out written another way, with the same meaning to a
// reader that decodes: the browser engine sends an apostrophe as "%27", and a letter, digit or one
// of "-._~" that the session holds percent-encoded is sent as itself.
QUrl pageUrl(const QString& baseUrl, const std::optional<QString>& session,
             const std::string& filename, std::int64_t size);

} // namespace quenmoor
