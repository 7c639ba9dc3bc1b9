#include "ui/shortcuts_window.h"

#include "ui/appearance.h"

#include <QAction>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

QString keysOf(const QAction& action)
{
    QStringList keys;
    for (const QKeySequence& key : action.shortcuts())
        keys << key.toString(QKeySequence::NativeText);
    return keys.join(u", "_s);
}

} // namespace

void showShortcuts(QWidget& window)
{
    const QString name = u"shortcuts"_s;
    if (auto* const shown = window.findChild<QDialog*>(name)) {
        shown->activateWindow();
        return;
    }
    auto* const dialog = new QDialog(&window);
    dialog->setObjectName(name);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(u"Keyboard Shortcuts"_s);
    auto* const rows = new QFormLayout(dialog);
    rows->setHorizontalSpacing(2 * dialog->fontMetrics().height());
    QList<QAction*> actions = window.actions(); // first
    for (QAction* const action : window.findChildren<QAction*>()) {
        if (!actions.contains(action))
            actions << action;
    }
    for (const QAction* const action : actions) {
        if (!action->shortcuts().empty())
            rows->addRow(action->text().remove(u'&').remove(u'…'),
                         new QLabel(keysOf(*action), dialog));
    }
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    rows->addRow(buttons);
    dialog->show();
}

} // namespace quenmoor
