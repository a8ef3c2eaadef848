#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace platform {

/// The dictionary that a property list, XML or binary, consists of.
class PropertyList
{
public:
    /// An empty dictionary.
    PropertyList() = default;

    /// Reads a property list. Anything but a dictionary is an empty one, and so is a property list
    /// that is not modest (PropertyListCheck.h).
    explicit PropertyList(const QByteArray &bytes);

    /// The value under `key` when it is text of at most 64 KiB and without a NUL, else null. An
    /// empty text is not null.
    QString text(const QString &key) const;

private:
    struct NodeDeleter
    {
        void operator()(void *node) const;
    };

    std::unique_ptr<void, NodeDeleter> m_dictionary;
};

} // namespace platform
