#pragma once

#include <QLineEdit>
#include <QStringList>

namespace platform {

class ArrayController;

/// A field whose text the records of an array controller are filtered by: a record is shown when
/// one of the properties named in `keys` contains the text, case and accents ignored.
///
/// Escape, in the field and in the widgets beside it, empties the field, or leaves it when it is
/// empty. Return and the keys that lead downwards select the first record, if none is selected, and
/// give the focus to the next widget.
class FilterField : public QLineEdit
{
    Q_OBJECT
    Q_PROPERTY(QStringList keys MEMBER m_keys)

public:
    explicit FilterField(QWidget *parent = nullptr);

    /// Filters the records of `controller`, which outlives the field.
    void setArrayController(ArrayController &controller);

public slots:
    /// Takes the focus, with the text selected.
    void startFiltering();

    /// Empties the field; leaves it if it is empty already.
    void cancelFiltering();

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    /// Makes the button that clears the text once there is text: looking for its icon in the themes
    /// of the desktop would take a fifth of the program's start.
    void offerClearing(const QString &text);
    void applyFilter();

    QStringList m_keys;
    QString m_appliedText;
    ArrayController *m_controller = nullptr;
};

} // namespace platform
