// Wraps a payload into the document that goes over the link.
//
// Nothing is escaped: the transfer server reads what stands between two tags as it is.
#pragma once

#include <string>
#include <string_view>

namespace quenmoor {

// `type` is the root element's name and the record's: "RequestContainer" or "ConfirmContainer".
// `payload` ends with a line feed; the document does not.
std::string buildXML(std::string_view payload, std::string_view type);

} // namespace quenmoor
