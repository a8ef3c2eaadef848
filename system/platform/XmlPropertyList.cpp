#include "system/platform/XmlPropertyList.h"

#include "system/platform/PropertyListTexts.h"

#include <QRandomGenerator>

#include <expat.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

namespace platform {

namespace {

constexpr std::size_t deepestNesting = 64;
constexpr int mostAttributes = 1000; // in the file; a real one has one, and each takes long
constexpr qsizetype longestTag = qsizetype{64} * 1024; // bytes

constexpr std::string_view whitespace = " \t\r\n";

enum class Element
{
    PropertyList,
    Dictionary,
    Array,
    Key,
    String,
    Other, ///< one that holds characters
    Unknown
};

Element elementOf(std::string_view name)
{
    using namespace std::string_view_literals;
    constexpr std::array<std::pair<std::string_view, Element>, 11> elements = {{
        {"key"sv, Element::Key},
        {"string"sv, Element::String},
        {"dict"sv, Element::Dictionary},
        {"array"sv, Element::Array},
        {"integer"sv, Element::Other},
        {"true"sv, Element::Other},
        {"false"sv, Element::Other},
        {"real"sv, Element::Other},
        {"date"sv, Element::Other},
        {"data"sv, Element::Other},
        {"plist"sv, Element::PropertyList},
    }};
    const auto *const found =
        std::find_if(elements.begin(), elements.end(),
                     [&](const auto &element) { return element.first == name; });
    return found != elements.end() ? found->second : Element::Unknown;
}

struct ParserDeleter
{
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserDeleter>;

/// The one parser, as new. It keeps its memory, which is long to get for thousands of short lists,
/// and the secret of its hash tables, which it would ask the kernel for each time.
XML_Parser freshParser(const char *encoding)
{
    static const Parser parser(XML_ParserCreate(nullptr));
    static const auto secret =
        static_cast<unsigned long>(QRandomGenerator::securelySeeded().generate64());
    XML_ParserReset(parser.get(), encoding);
    XML_SetHashSalt(parser.get(), secret);
    return parser.get();
}

/// One pass through a property list. There is one at a time.
class Reader
{
public:
    /// `encoding` null: the declared one.
    Reader(PropertyListTexts &texts, const char *encoding)
        : m_parser(freshParser(encoding))
        , m_texts(texts)
    {
        XML_SetUserData(m_parser, this);
        XML_SetElementHandler(m_parser, startElement, endElement);
        XML_SetStartDoctypeDeclHandler(m_parser, startDocumentType);
    }

    bool read(QByteArrayView bytes)
    {
        while (!bytes.isEmpty()) {
            const QByteArrayView piece = bytes.first(std::min(bytes.size(), longestTag));
            bytes = bytes.sliced(piece.size());
            m_bytesRead += piece.size();
            const auto status = XML_Parse(m_parser, piece.data(), int(piece.size()), 0);
            if (status != XML_STATUS_OK || position() < m_bytesRead - longestTag) {
                break;
            }
        }
        return m_isComplete;
    }

    XML_Error error() const { return XML_GetErrorCode(m_parser); }

private:
    static void XMLCALL startElement(void *self, const XML_Char *name, const XML_Char **attributes)
    {
        auto &reader = *static_cast<Reader *>(self);
        for (; *attributes != nullptr; attributes += 2) { // name and value
            ++reader.m_attributes;
        }
        reader.start(elementOf(name));
    }
    static void XMLCALL endElement(void *self, const XML_Char *)
    {
        static_cast<Reader *>(self)->end();
    }
    static void XMLCALL characters(void *self, const XML_Char *text, int length)
    {
        std::string &characters = static_cast<Reader *>(self)->m_characters;
        if (characters.size() <= PropertyListTexts::longest) {
            characters.append(text, std::size_t(length));
        }
    }
    /// Declared entities and attributes make a short text long, or each element slow.
    static void XMLCALL startDocumentType(void *self, const XML_Char *, const XML_Char *,
                                          const XML_Char *, int hasInternalSubset)
    {
        if (hasInternalSubset != 0) {
            static_cast<Reader *>(self)->stop();
        }
    }

    /// Where what is being read begins, in bytes.
    qsizetype position() const
    {
        return std::max(qsizetype(XML_GetCurrentByteIndex(m_parser)), qsizetype(0));
    }

    void stop()
    {
        m_isStopped = true;
        XML_StopParser(m_parser, XML_FALSE);
    }

    void start(Element element)
    {
        const Element parent = m_depth > 0 ? m_open[m_depth - 1] : Element::PropertyList;
        const bool isAllowed = element != Element::Unknown && parent <= Element::Array &&
                               (element != Element::PropertyList || m_depth == 0) &&
                               (element != Element::Key || parent == Element::Dictionary);
        if (!isAllowed || m_depth == deepestNesting || m_attributes > mostAttributes) {
            return stop();
        }
        const bool isRoot = m_rootDepth == 0 && element != Element::PropertyList;
        if (isRoot) {
            m_rootDepth = m_depth + 1;
        }
        const bool isEntry = m_rootDepth > 0 && m_depth == m_rootDepth;
        const bool isExpected =
            isRoot ? element == Element::Dictionary : !isEntry || startEntry(element);
        if (!isExpected) {
            return stop();
        }
        m_open[m_depth++] = element;
    }

    /// Keys and values must take turns.
    bool startEntry(Element element)
    {
        if ((element == Element::Key) == m_hasKey) {
            return false;
        }
        const bool isWanted = element == Element::Key ||
                              (element == Element::String && m_index != PropertyListTexts::unknown);
        if (isWanted) {
            m_characters.clear();
            XML_SetCharacterDataHandler(m_parser, characters);
        }
        return true;
    }

    void end()
    {
        if (m_isStopped) { // an empty element ends even then
            return;
        }
        const Element element = m_open[--m_depth];
        if (m_depth == m_rootDepth) {
            endEntry(element);
        } else if (m_depth < m_rootDepth) {
            m_isComplete = true;
            stop();
        }
    }

    void endEntry(Element element)
    {
        XML_SetCharacterDataHandler(m_parser, nullptr);
        m_hasKey = element == Element::Key;
        if (m_hasKey) {
            m_index = m_texts.indexOf(m_characters);
        } else if (m_index != PropertyListTexts::unknown) {
            if (element == Element::String) {
                m_texts.set(m_index, m_characters);
            } else {
                m_texts.setNull(m_index);
            }
        }
    }

    XML_Parser m_parser;
    PropertyListTexts &m_texts;
    std::array<Element, deepestNesting> m_open = {};
    std::size_t m_depth = 0;     ///< how many elements are open
    std::size_t m_rootDepth = 0; ///< how many are open in the dictionary, itself included; 0 before
    bool m_isStopped = false;
    bool m_isComplete = false;
    bool m_hasKey = false;                            ///< a value must follow
    std::size_t m_index = PropertyListTexts::unknown; ///< of the last key
    std::string m_characters;
    int m_attributes = 0;
    qsizetype m_bytesRead = 0;
};

/// The encoding that the first bytes tell; null when it is the declared one.
const char *encodingOf(QByteArrayView bytes)
{
    if (bytes.startsWith("\xEF\xBB\xBF")) {
        return "UTF-8";
    }
    if (bytes.startsWith("\xFE\xFF") || bytes.startsWith("\xFF\xFE")) {
        return "UTF-16";
    }
    if (bytes.startsWith(QByteArrayView("<\0", 2))) {
        return "UTF-16LE";
    }
    return bytes.startsWith(QByteArrayView("\0<", 2)) ? "UTF-16BE" : nullptr;
}

/// Some write blanks before the declaration, where nothing may stand.
QByteArrayView withoutLeadingBlanks(QByteArrayView bytes)
{
    const std::string_view text(bytes.data(), std::size_t(bytes.size()));
    const std::size_t start = text.find_first_not_of(whitespace);
    return bytes.sliced(start == std::string_view::npos ? bytes.size() : qsizetype(start));
}

} // namespace

bool readXmlPropertyList(const QByteArray &bytes, PropertyListTexts &texts)
{
    const QByteArrayView document = withoutLeadingBlanks(bytes);
    Reader reader(texts, encodingOf(document));
    if (reader.read(document)) {
        return true;
    }
    const XML_Error error = reader.error();
    const bool isMisencoded = error == XML_ERROR_UNKNOWN_ENCODING ||
                              error == XML_ERROR_INCORRECT_ENCODING ||
                              (error == XML_ERROR_INVALID_TOKEN &&
                               !QUtf8StringView(document.data(), document.size()).isValidUtf8());
    if (!isMisencoded) {
        return false;
    }
    texts.clear();
    return Reader(texts, "UTF-8").read(QString::fromUtf8(document).toUtf8());
}

} // namespace platform
