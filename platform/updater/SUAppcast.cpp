#include "nbbase/updater/SUAppcast.h"

#include <algorithm>
#include <climits>
#include <cstdint>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlversion.h>

namespace nb {
namespace {

// The structured error callback took a non-const error before libxml2 2.12.
#if LIBXML_VERSION >= 21200
using XmlErrorArg = const xmlError*;
#else
using XmlErrorArg = xmlError*;
#endif

void initialiseXmlOnce() {
    static const bool initialised = [] {
        xmlInitParser();
        return true;
    }();
    (void)initialised;
}

struct Diagnostics {
    std::string firstError;
    bool declaresDtd = false;
};

void record(Diagnostics& diagnostics, XmlErrorArg error) {
    if (error == nullptr || error->level < XML_ERR_ERROR || !diagnostics.firstError.empty()) return;
    std::string message = error->message != nullptr ? error->message : "unknown error";
    // Some messages run over two lines ("Input is not proper UTF-8, indicate encoding !\nBytes: ...").
    std::replace(message.begin(), message.end(), '\n', ' ');
    while (!message.empty() && message.back() == ' ') message.pop_back();
    diagnostics.firstError = error->line > 0 ? fmt::format("line {}: {}", error->line, message) : message;
}

// The parser hands its context's user data, which must stay the context for the SAX builder to work;
// our diagnostics ride in _private.
void onContextError(void* context, XmlErrorArg error) {
    record(*static_cast<Diagnostics*>(static_cast<xmlParserCtxtPtr>(context)->_private), error);
}

void onThreadError(void* diagnostics, XmlErrorArg error) { record(*static_cast<Diagnostics*>(diagnostics), error); }

void onThreadGenericError(void*, const char*, ...) {}

// Called once the DOCTYPE's name and external id are read, before any internal subset: stopping here
// means no entity declaration is ever parsed, let alone expanded.
void onDoctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    auto* parser = static_cast<xmlParserCtxtPtr>(context);
    static_cast<Diagnostics*>(parser->_private)->declaresDtd = true;
    xmlStopParser(parser);
}

// Messages raised outside a parser context (character-set conversion above all) go to the calling
// thread's handlers; these are per thread in libxml2, so swapping them affects no other thread.
class ThreadErrorHandlers {
public:
    explicit ThreadErrorHandlers(Diagnostics& diagnostics)
        : structured_(xmlStructuredError),
          structuredContext_(xmlStructuredErrorContext),
          generic_(xmlGenericError),
          genericContext_(xmlGenericErrorContext) {
        xmlSetStructuredErrorFunc(&diagnostics, onThreadError);
        xmlSetGenericErrorFunc(nullptr, onThreadGenericError);
    }
    ~ThreadErrorHandlers() {
        xmlSetStructuredErrorFunc(structuredContext_, structured_);
        xmlSetGenericErrorFunc(genericContext_, generic_);
    }
    ThreadErrorHandlers(const ThreadErrorHandlers&) = delete;
    ThreadErrorHandlers& operator=(const ThreadErrorHandlers&) = delete;

private:
    xmlStructuredErrorFunc structured_;
    void* structuredContext_;
    xmlGenericErrorFunc generic_;
    void* genericContext_;
};

struct ContextFree {
    void operator()(xmlParserCtxtPtr context) const noexcept { xmlFreeParserCtxt(context); }
};
struct DocFree {
    void operator()(xmlDocPtr doc) const noexcept { xmlFreeDoc(doc); }
};
struct XmlFree {
    void operator()(xmlChar* text) const noexcept { xmlFree(text); }
};

std::string qualifiedName(const xmlNs* ns, const xmlChar* name) {
    std::string result;
    if (ns != nullptr && ns->prefix != nullptr) {
        result = reinterpret_cast<const char*>(ns->prefix);
        result += ':';
    }
    if (name != nullptr) result += reinterpret_cast<const char*>(name);
    return result;
}

// Text content of an element or attribute: descendants' text and CDATA, in order.
std::string textOf(xmlNodePtr node) {
    const std::unique_ptr<xmlChar, XmlFree> text(xmlNodeGetContent(node));
    return text ? std::string(reinterpret_cast<const char*>(text.get())) : std::string();
}

Value attributesOf(xmlNodePtr element) {
    Value attributes{Value::Dictionary()};
    for (xmlAttrPtr attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
        std::string name = qualifiedName(attribute->ns, attribute->name);
        if (attributes.contains(name)) continue;
        attributes.set(std::move(name), Value(textOf(reinterpret_cast<xmlNodePtr>(attribute))));
    }
    return attributes;
}

Value itemDictionary(xmlNodePtr item) {
    Value dictionary{Value::Dictionary()};
    for (xmlNodePtr child = item->children; child != nullptr; child = child->next) {
        if (child->type != XML_ELEMENT_NODE) continue;
        std::string name = qualifiedName(child->ns, child->name);
        if (dictionary.contains(name)) continue;
        Value value = name == "enclosure" ? attributesOf(child) : Value(textOf(child));
        dictionary.set(std::move(name), std::move(value));
    }
    return dictionary;
}

xmlNodePtr firstElementNamed(xmlNodePtr parent, std::string_view name) {
    for (xmlNodePtr child = parent->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && qualifiedName(child->ns, child->name) == name) return child;
    }
    return nullptr;
}

}  // namespace

std::optional<SUAppcast> SUAppcast::parseAppcastData(std::string_view xml, std::string* error, NBLog& log) {
    const auto fail = [error](std::string reason) -> std::optional<SUAppcast> {
        if (error != nullptr) *error = std::move(reason);
        return std::nullopt;
    };
    static_assert(kMaxFeedBytes <= INT_MAX, "libxml2 takes the size as an int");
    if (xml.size() > kMaxFeedBytes) {
        return fail(fmt::format("the feed is {} bytes, more than the {} accepted", xml.size(), kMaxFeedBytes));
    }

    initialiseXmlOnce();
    Diagnostics diagnostics;
    const ThreadErrorHandlers handlers(diagnostics);
    const std::unique_ptr<xmlParserCtxt, ContextFree> parser(xmlNewParserCtxt());
    if (!parser || parser->sax == nullptr) return fail("out of memory for the XML parser");
    parser->_private = &diagnostics;
    parser->sax->serror = onContextError;
    parser->sax->internalSubset = onDoctype;

    // No XML_PARSE_NOENT (entities stay unsubstituted), no DTD loading, no XML_PARSE_HUGE (the default
    // depth and text-size limits hold).
    const std::unique_ptr<xmlDoc, DocFree> doc(xmlCtxtReadMemory(
        parser.get(), xml.data(), static_cast<int>(xml.size()), "appcast.xml", nullptr, XML_PARSE_NONET));
    // Checked first: a parse stopped at the DOCTYPE may still hand back a partial document.
    if (diagnostics.declaresDtd) return fail("the feed declares a DTD, which is refused");
    if (!doc) {
        return fail(diagnostics.firstError.empty() ? std::string("the feed is not well-formed XML")
                                                   : "the feed is not well-formed XML: " + diagnostics.firstError);
    }

    const xmlNodePtr root = xmlDocGetRootElement(doc.get());
    const std::string rootName = root != nullptr ? qualifiedName(root->ns, root->name) : std::string();
    if (rootName != "rss") return fail(fmt::format("the feed's root element is <{}>, not <rss>", rootName));
    const xmlNodePtr channel = firstElementNamed(root, "channel");
    if (channel == nullptr) return fail("the feed's <rss> has no <channel>");

    SUAppcast appcast;
    std::size_t index = 0;
    for (xmlNodePtr node = channel->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE || qualifiedName(node->ns, node->name) != "item") continue;
        ++index;
        std::string reason;
        if (auto item = SUAppcastItem::initWithDictionary(itemDictionary(node), &reason)) {
            appcast.items_.push_back(std::move(item));
        } else {
            log.log(2, "appcast item {} skipped: {}", index, reason);
        }
    }
    return appcast;
}

}  // namespace nb
