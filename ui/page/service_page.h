// The service's upload page, as the window knows it: something that can be shown and loaded, and
// that speaks by its document title.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <optional>

class QWidget;

namespace quenmoor {

// One title, with the values that the page's elements held in the moment when it was set. An
// absent element, or one without the attribute, is an absent value.
struct PageSignal {
    QString title;
    std::optional<QString> session;   // "session": attribute "value"
    std::optional<QString> token;     // "token": attribute "value"
    std::optional<QString> macMajor;  // "mac_major": inner text
    std::optional<QString> macMinor;  // "mac_minor": inner text
    std::optional<QString> macBuild;  // "mac_build": inner text
    std::optional<QString> updateUrl; // "update_url": inner text
};

// Main thread only.
class ServicePage : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // What shows the page. Owned by the page until the window takes it over as a child.
    virtual QWidget* widget() = 0;

    // Loads `url` into the main frame, with a plain GET request. Returns at once. Loading the same
    // URL again makes the page signal again.
    virtual void load(const QUrl& url) = 0;

Q_SIGNALS:
    // A title of the main frame, of a document of the service's own origin. In the order in which
    // the page set them, none left out, none twice.
    void titleReceived(const quenmoor::PageSignal& signal);
};

} // namespace quenmoor
