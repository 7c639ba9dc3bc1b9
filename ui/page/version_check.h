// Compares the client's version with the newest one, which the service's page publishes.
//
// A page without version elements publishes 0.0.0, so it never makes a client out of date.
#pragma once

#include "ui/page/service_page.h"

#include <cstdint>
#include <string_view>

namespace quenmoor {

struct Version {
    std::int32_t major = 0;
    std::int32_t minor = 0;
    std::int32_t build = 0;

    bool operator==(const Version&) const = default;
};

// The first three components of a text such as "1.4.2": each the leading integer of its text, 0
// when there is none. Further components do not count. Nothing with fewer than three.
std::optional<Version> parseVersion(std::string_view text);

// The numbers in the page's elements. An absent or empty one is 0; one beyond 32 bits becomes the
// largest or smallest value.
Version pageVersion(const PageSignal& signal);

bool isOutOfDate(const Version& client, const Version& newest);

// Where the page says that the newest client is found. Nothing unless it is a well-formed http or
// https URL with a host: any other scheme could start a program of this machine at the page's will.
std::optional<QUrl> downloadUrl(const PageSignal& signal);

} // namespace quenmoor
