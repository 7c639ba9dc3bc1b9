// The four XML documents that client and transfer server exchange, as records.
//
// request    client to server, once per attempt: announces one file
// response   server to client: what the server holds under this name
// confirm    client to server: what to do about an existing copy
// finished   server to client: how many bytes the server holds after the upload
//
// Names and tokens are written unescaped: the server reads the bytes between two tags as they are.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quenmoor {

struct RequestContainer {
    std::string originFilename; // the file's name on disk, byte for byte
    std::string token;
    std::int64_t size = 0; // bytes

    // A name with "&" or "<" does not make well-formed XML; the server takes the line, not the
    // entity, and would store an escaped name under the wrong one.
    std::string XMLpayload() const;
};

struct ResponseContainer {
    bool exists = false;        // the server holds a copy under this name
    bool equal = false;         // the copy is the announced file
    bool complete = false;      // the copy was uploaded to its end
    std::int64_t size = -1;     // bytes of the copy, as reported; may be any number
    std::int32_t response = -1; // status code; 1 refuses the upload

    // Fills every field from a received document; one that breaks off in the middle fills them
    // from what came before. A missing flag counts as true, a missing number as 0. Returns this
    // record.
    ResponseContainer& parseXML(std::string_view text);
};

// resume  overwrite
// true    false      continue the copy
// true    true       replace it
// false   false      leave it alone: the upload is cancelled
struct ConfirmContainer {
    bool resume = false;
    bool overwrite = false;

    std::string XMLpayload() const;
};

struct FinishedContainer {
    std::int64_t size = -1; // bytes that the server holds

    // Fills the size from a received document, 0 when it has none. Returns this record.
    FinishedContainer& parseXML(std::string_view text);
};

// Wraps `payload`, which ends with a line feed, into the document that is sent. `type` names the
// root element: "RequestContainer" or "ConfirmContainer". The document has no final line feed.
std::string buildXML(std::string_view payload, std::string_view type);

} // namespace quenmoor
