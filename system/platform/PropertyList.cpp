#include "system/platform/PropertyList.h"

#include "system/platform/PropertyListCheck.h"

#include <plist/plist.h>

namespace platform {

namespace {

constexpr quint64 longestText = 64ULL * 1024; // bytes; a longer one would keep the window busy

} // namespace

void PropertyList::NodeDeleter::operator()(void *node) const
{
    plist_free(node);
}

PropertyList::PropertyList(const QByteArray &bytes)
{
    if (!isModestPropertyList(bytes)) {
        return;
    }
    plist_t node = nullptr;
    plist_from_memory(bytes.constData(), uint32_t(bytes.size()), &node);
    m_dictionary.reset(node);
    if (node && plist_get_node_type(node) != PLIST_DICT) {
        m_dictionary.reset();
    }
}

QString PropertyList::text(const QString &key) const
{
    const plist_t value =
        m_dictionary ? plist_dict_get_item(m_dictionary.get(), key.toUtf8()) : nullptr;
    if (!value || plist_get_node_type(value) != PLIST_STRING) {
        return {};
    }
    uint64_t length = 0;
    const char *const bytes = plist_get_string_ptr(value, &length);
    if (length > longestText) {
        return {};
    }
    const QString text = QString::fromUtf8(bytes, qsizetype(length));
    // No name of a file can hold a NUL.
    return text.contains(QChar::Null) ? QString() : text;
}

} // namespace platform
