#include "ui/platform/FilterField.h"

#include "ui/platform/ArrayController.h"
#include "ui/platform/FoldedText.h"
#include "ui/platform/InputGate.h"

#include <QAbstractButton>
#include <QKeyEvent>
#include <QShortcut>

#include <algorithm>

namespace platform {

FilterField::FilterField(QWidget *parent) : QLineEdit(parent)
{
    if (parent) {
        auto *const escape = new QShortcut(Qt::Key_Escape, parent);
        escape->setContext(Qt::WidgetWithChildrenShortcut);
        connect(escape, &QShortcut::activated, this, &FilterField::cancelFiltering);
    }
    connect(this, &QLineEdit::textChanged, this, &FilterField::offerClearing);
    connect(this, &QLineEdit::textChanged, this, &FilterField::applyFilter);
}

void FilterField::setArrayController(ArrayController &controller)
{
    m_controller = &controller;
}

void FilterField::startFiltering()
{
    setFocus(Qt::ShortcutFocusReason);
    selectAll();
}

void FilterField::cancelFiltering()
{
    if (!text().isEmpty()) {
        clear();
    } else if (hasFocus()) {
        focusNextChild();
    }
}

void FilterField::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Down:
    case Qt::Key_PageDown:
        if (m_controller && m_controller->selectionIndexes().isEmpty()) {
            m_controller->setSelectionIndexes({0});
        }
        focusNextChild();
        break;
    default:
        QLineEdit::keyPressEvent(event);
    }
}

void FilterField::offerClearing(const QString &text)
{
    if (!isClearButtonEnabled()) {
        setClearButtonEnabled(true);
        findChild<QAbstractButton *>()->setAccessibleName(tr("Clear"));
    }
    findChild<QAbstractButton *>()->setEnabled(!text.isEmpty());
}

void FilterField::applyFilter()
{
    if (!m_controller) {
        return;
    }
    if (InputGate::shared().isWorkUnderWay()) {
        return setText(m_appliedText); // assistive technology has written something: not now
    }
    m_appliedText = text();
    const QString wanted = foldedText(text().trimmed());
    if (wanted.isEmpty()) {
        m_controller->setFilter({});
    } else {
        m_controller->setFilter([keys = m_keys, wanted](const QObject &record) {
            return std::any_of(keys.begin(), keys.end(), [&](const QString &key) {
                return foldedText(record.property(key.toUtf8()).toString()).contains(wanted);
            });
        });
    }
    m_controller->rearrangeObjects();
}

} // namespace platform
