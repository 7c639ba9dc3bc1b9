#include "devservice/response_documents.h"

#include "protocol/documents.h"

#include <fmt/format.h>

namespace quenmoor {

std::string responseDocument(const ResponseContainer& response)
{
    return buildXML(fmt::format("<exists>{}</exists>\n"
                                "<equal>{}</equal>\n"
                                "<complete>{}</complete>\n"
                                "<size>{}</size>\n"
                                "<response>{}</response>\n",
                                response.exists, response.equal, response.complete, response.size,
                                response.response),
                    "ResponseContainer");
}

std::string finishedDocument(std::int64_t size)
{
    return buildXML(fmt::format("<size>{}</size>\n", size), "FinishedContainer");
}

} // namespace quenmoor
