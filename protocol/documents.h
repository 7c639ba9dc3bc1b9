// The four XML documents that client and transfer server exchange, as records, and their writer.
//
// request    client to server, once per attempt: announces one file
// response   server to client: describes the copy that the server already has
// confirm    client to server: what to do about that copy
// finished   server to client: the number of bytes stored after the upload
//
// Names and tokens are written unescaped, because the server does not decode entities.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quenmoor {

struct RequestContainer {
    std::string originFilename; // the file's name on disk, byte for byte
    std::string token;
    std::int64_t size = 0; // bytes

    // A name with "&" or "<" makes the document ill-formed XML. Escaping it would change the name
    // under which the server stores the file.
    std::string XMLpayload() const;
};

struct ResponseContainer {
    bool exists = false;        // the server has a copy of the file
    bool equal = false;         // the copy is equal to the announced file
    bool complete = false;      // the upload of the copy was complete
    std::int64_t size = -1;     // bytes of the copy, as received; any value is possible
    std::int32_t response = -1; // status code; 1 refuses the upload
    bool empty = false;         // the document has none of the fields above

    // Sets every field from a received document, or from the well-formed beginning of one. A
    // missing flag counts as true, a missing number as 0. Returns this record.
    ResponseContainer& parseXML(std::string_view text);
};

// resume  overwrite
// true    false      continue the copy
// true    true       replace the copy
// false   false      keep the copy and cancel the upload
struct ConfirmContainer {
    bool resume = false;
    bool overwrite = false;

    std::string XMLpayload() const;
};

struct FinishedContainer {
    std::int64_t size = -1; // bytes that the server has stored, as received

    // Sets the size from a received document, to 0 if it contains none. Returns this record.
    FinishedContainer& parseXML(std::string_view text);
};

// Returns the document to send: `payload`, which ends with a line feed, inside the root element
// `type`, "RequestContainer" or "ConfirmContainer". The document has no final line feed.
std::string buildXML(std::string_view payload, std::string_view type);

} // namespace quenmoor
