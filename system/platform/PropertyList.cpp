#include "system/platform/PropertyList.h"

#include "system/platform/PropertyListCheck.h"

#include <plist/plist.h>

#include <QDateTime>

#include <cstdlib>
#include <memory>

namespace platform {

namespace {

struct PlistDeleter
{
    void operator()(void *node) const { plist_free(node); }
};
using PlistPointer = std::unique_ptr<void, PlistDeleter>;

QString textOfNode(plist_t node)
{
    char *text = nullptr;
    plist_get_string_val(node, &text);
    // An empty text is a text: not null.
    QString result = text && *text ? QString::fromUtf8(text) : QStringLiteral("");
    std::free(text);
    return result;
}

QVariantMap mapOfNode(plist_t node);

QVariant variantOfNode(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_STRING:
        return textOfNode(node);
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return quint64(value);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_DATE: {
        constexpr qint64 startOf2001 = 978307200; // the format's own epoch, in Unix time
        int32_t seconds = 0;
        int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return QDateTime::fromSecsSinceEpoch(startOf2001 + seconds).addMSecs(microseconds / 1000);
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char *bytes = plist_get_data_ptr(node, &length);
        return QByteArray(bytes, qsizetype(length));
    }
    case PLIST_ARRAY: {
        QVariantList list;
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i) {
            list.append(variantOfNode(plist_array_get_item(node, i)));
        }
        return list;
    }
    case PLIST_DICT:
        return mapOfNode(node);
    default:
        return {};
    }
}

QVariantMap mapOfNode(plist_t node)
{
    QVariantMap map;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    for (;;) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &key, &value);
        if (!value) {
            std::free(key);
            break;
        }
        map.insert(QString::fromUtf8(key), variantOfNode(value));
        std::free(key);
    }
    std::free(iterator);
    return map;
}

} // namespace

QVariantMap propertyListDictionary(const QByteArray &bytes)
{
    if (!isModestPropertyList(bytes)) {
        return {};
    }
    plist_t node = nullptr;
    plist_from_memory(bytes.constData(), uint32_t(bytes.size()), &node);
    const PlistPointer root(node);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) {
        return {};
    }
    return mapOfNode(root.get());
}

} // namespace platform
