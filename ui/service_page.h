// The service's upload page: the interface through which the window shows it, its URL, and the
// client version that it publishes.
//
// The page reports events by setting its document title. Each load has a number, and every signal
// carries the number of the load whose document set the title. A page without version elements
// publishes 0.0.0, so no client is out of date for it.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class QJsonObject;
class QWidget;

namespace quenmoor {

using LoadNumber = std::uint64_t;

// One title, with the values of the page's elements at the moment when it was set. A missing
// element or attribute is an absent value.
struct PageSignal {
    QString title;
    std::optional<QString> session;   // "session": attribute "value"
    std::optional<QString> token;     // "token": attribute "value"
    std::optional<QString> macMajor;  // "mac_major": inner text
    std::optional<QString> macMinor;  // "mac_minor": inner text
    std::optional<QString> macBuild;  // "mac_build": inner text
    std::optional<QString> updateUrl; // "update_url": inner text
    LoadNumber load = 0;
};

// Implemented by the embedded browser and by the tests. Main thread only.
class ServicePage : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // The widget that shows the page. Owned by the page until a window becomes its parent.
    virtual QWidget* widget() = 0;

    // Starts to load `url` into the main frame with a plain GET request and returns at once, with
    // the number of the load. It ends the document of the previous load, also if the URL is the
    // same. A reload by the user or by the document keeps the number.
    virtual LoadNumber load(const QUrl& url) = 0;

    // Ends the document of the latest load, because it does something without end, and shows that
    // to the user. `what` is a sentence for a support person, for example "Too many sessions."
    virtual void endOverload(const QString& what) = 0;

    // Returns true if the latest load failed or its document ended.
    virtual bool hasFailed() const = 0;

Q_SIGNALS:
    // Emitted once for each title of the main frame, in the order in which the page set them, if
    // the document has the service's own origin.
    void titleReceived(const quenmoor::PageSignal& signal);
};

// Permits `burst` events at once and `perSecond` events a second on average.
class EventLimit {
public:
    using Time = std::chrono::steady_clock::time_point;

    EventLimit(double burst, double perSecond)
        : burst_(burst), perSecond_(perSecond), available_(burst)
    {
    }

    // Returns whether `events` more events are within the limit.
    [[nodiscard]] bool take(Time now = std::chrono::steady_clock::now(), double events = 1);

private:
    double burst_;
    double perSecond_;
    double available_;
    std::optional<Time> latest_;
};

// The lines about a page in the system log. A page can set titles and write to its console without
// end, so only a burst of 100 lines and then 5 lines a second on average are written. The number of
// omitted lines is written with the next line.
class PageLog {
public:
    void write(std::string_view line, EventLimit::Time now = std::chrono::steady_clock::now());

private:
    EventLimit limit_{100, 5};
    std::uint64_t omitted_ = 0;
};

inline constexpr qsizetype kMaxPageText = 65'536; // UTF-16 units; above any session, token or URL

// Returns the title and the values in a message of the page's script, without a load number. A
// title that is too long is cut; a value that is too long is logged to `log` and absent.
PageSignal readPageSignal(const QJsonObject& message, PageLog& log);

// The URL of the page on `host`. The scheme is always https; port 443 is omitted.
QString baseUrl(const QString& host, std::uint16_t port);

// The URL of the page for one file: `baseUrl` followed by "?session=", "&filename=" and "&size=".
// The service defines this query byte for byte, so it is not built with QUrlQuery. `session` is
// used as it is, with its percent escapes; an absent one is "(null)". What a URL cannot contain is
// encoded, also a "%" without two hexadecimal digits. `filename` is bytes in any encoding, `size`
// is in bytes.
//
// A "#" in the session starts a fragment, which is not sent to the service. No session can change
// the host. The browser engine rewrites two things: it sends "'" as "%27", and it decodes the
// percent-encoding of letters, digits and "-._~" in the session.
QUrl pageUrl(const QString& baseUrl, const std::optional<QString>& session,
             const std::string& filename, std::int64_t size);

struct Version {
    std::int32_t major = 0;
    std::int32_t minor = 0;
    std::int32_t build = 0;

    bool operator==(const Version&) const = default;
};

// Parses the first three components of a text such as "1.4.2" with leadingInt32() and ignores
// further ones. Returns nullopt if there are fewer than three.
std::optional<Version> parseVersion(std::string_view text);

// The version in the page's elements. An absent element counts as 0.
Version pageVersion(const PageSignal& signal);

bool isOutOfDate(const Version& client, const Version& newest);

// The page's download URL. Returns nullopt unless it is a valid http or https URL with a host: with
// any other scheme, the page could start a local program.
std::optional<QUrl> downloadUrl(const PageSignal& signal);

} // namespace quenmoor
