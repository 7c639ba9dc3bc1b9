// Turns a received document into a flat map from element name to text.
//
// Flat means: text belongs to the element that was started last, also after its end tag. The line
// feed behind "</exists>" is thus part of the entry "exists", and the one behind the root's start
// tag is the root's own entry. The records read their values with that in mind.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace quenmoor {

class XMLparser {
public:
    using Dictionary = std::map<std::string, std::string, std::less<>>;

    // Parses the whole of `text`, which is UTF-8 whatever its declaration says. At the first
    // error the parse ends and the dictionary holds what came before it. An element that comes
    // again appends to its earlier entry. A document whose entities would unfold into more than
    // a megabyte of text counts as an error too.
    explicit XMLparser(std::string_view text);

    const Dictionary& dictionary() const { return dictionary_; }

    // The entry of `name`, or nullptr.
    const std::string* find(std::string_view name) const;

private:
    struct Handlers; // what the parsing library calls back

    Dictionary dictionary_;
    std::string currentTag_;
    std::size_t gathered_ = 0; // bytes of text in all entries together
};

} // namespace quenmoor
