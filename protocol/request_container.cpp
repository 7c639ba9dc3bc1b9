#include "protocol/request_container.h"

#include <fmt/format.h>

namespace quenmoor {

RequestContainer::RequestContainer(std::string originFilename, std::string token, std::int64_t size)
    : originFilename_(std::move(originFilename)), token_(std::move(token)), size_(size)
{
}

std::string RequestContainer::XMLpayload() const
{
    return fmt::format("<size>{}</size>\n"
                       "<token>{}</token>\n"
                       "<originFilename>{}</originFilename>\n",
                       size_, token_, originFilename_);
}

} // namespace quenmoor
