#pragma once

#include <QMetaProperty>
#include <QObject>
#include <QStringList>

/// Records the notifications of observable properties in order, as "PREFIX.property=value".
class NotificationLog : public QObject
{
    Q_OBJECT

public:
    void observe(QObject &object, const QString &prefix)
    {
        object.setObjectName(prefix);
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("record()"));
        for (int i = 0; i < object.metaObject()->propertyCount(); ++i) {
            const QMetaProperty property = object.metaObject()->property(i);
            if (property.hasNotifySignal() && property.notifySignalIndex() > 2) {
                connect(&object, property.notifySignal(), this, slot);
            }
        }
    }
    QStringList take() { return std::exchange(m_entries, {}); }

private slots:
    void record()
    {
        const QMetaObject *const type = sender()->metaObject();
        for (int i = 0; i < type->propertyCount(); ++i) {
            const QMetaProperty property = type->property(i);
            if (property.notifySignalIndex() == senderSignalIndex()) {
                m_entries.append(sender()->objectName() + '.' + property.name() + '=' +
                                 property.read(sender()).toString());
            }
        }
    }

private:
    QStringList m_entries;
};
