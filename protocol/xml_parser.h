// Turns a received document into a flat map from element name to text.
//
// Text belongs to the element that started last, even after that element's end tag. The line feed
// after "</exists>" is therefore part of the entry "exists", and the line feed after the root's
// start tag is the entry of the root.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace quenmoor {

class XMLparser {
public:
    using Dictionary = std::map<std::string, std::string, std::less<>>;

    // Parses all of `text` as UTF-8, whatever encoding it declares. Parsing stops at the first
    // error; the dictionary then contains the text before it. A repeated element appends to its
    // entry. More than 1 MiB of text or 4096 elements and pieces of text is an error too: a small
    // document can produce both by nested entities. Logs the first 100 elements and pieces.
    explicit XMLparser(std::string_view text);

    const Dictionary& dictionary() const { return dictionary_; }

    // Returns the entry of `name`, or nullptr if there is none.
    const std::string* find(std::string_view name) const;

private:
    struct Handlers; // the callbacks of the XML library

    Dictionary dictionary_;
    std::string currentTag_;
    std::size_t textSize_ = 0; // bytes in all entries
};

} // namespace quenmoor
