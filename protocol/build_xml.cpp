#include "protocol/build_xml.h"

#include <fmt/format.h>

namespace quenmoor {

std::string buildXML(std::string_view payload, std::string_view type)
{
    return fmt::format("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                       "<{0} xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
                       " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
                       "{1}"
                       "</{0}>",
                       type, payload);
}

} // namespace quenmoor
