// The details of one row of the status table, as text for its tool tip, assistive technology and
// the clipboard, and the actions of the table's context menu.
#pragma once

#include "engine/attempt_event.h"
#include "queue/file_url.h"

#include <QString>
#include <optional>

class QTableView;

namespace quenmoor {

// What the engine has reported about the file of one row.
class RowHistory {
public:
    void add(const AttemptEvent& event);

    // Several lines of plain text: name, path, and if an attempt has begun, which one of how many
    // and what it does, bytes, elapsed time, time left, why the latest failed attempt failed, and
    // whether the file has changed.
    QString details(const FileUrl& file) const;

private:
    std::optional<AttemptEvent> latest_;
    QString failure_; // of the latest failed attempt of the file
};

// Gives `table`, which shows a StatusTableModel, its context menu: Copy Details, Copy Row and Show
// in Folder for the selected rows. The menu key and Shift+F10 open it
// too. Main thread only.
void addRowActions(QTableView& table);

} // namespace quenmoor
