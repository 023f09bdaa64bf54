#include "host/site/mobile/pages.h"

#include <climits>
#include <memory>
#include <mutex>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/variables.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

namespace host {
namespace {

template <auto Free>
struct FreeWith {
    template <class Object>
    void operator()(Object* object) const noexcept {
        Free(object);
    }
};
using Document = std::unique_ptr<xmlDoc, FreeWith<xmlFreeDoc>>;
using Sheet = std::unique_ptr<xsltStylesheet, FreeWith<xsltFreeStylesheet>>;
using Context = std::unique_ptr<xsltTransformContext, FreeWith<xsltFreeTransformContext>>;
using SecurityPreferences = std::unique_ptr<xsltSecurityPrefs, FreeWith<xsltFreeSecurityPrefs>>;

// No entity is replaced, nothing is fetched, and complaints go nowhere: a document is read or not.
constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

void SaveNoComplaint(void* /*context*/, const char* /*format*/, ...) {}

void PrepareLibraries() {
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xsltSetGenericErrorFunc(nullptr, SaveNoComplaint);
    });
}

Document Read(const std::string& text) {
    if (text.size() > INT_MAX)
        return nullptr;
    return Document(
        xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, kParseOptions));
}

SecurityPreferences NothingButMemory() {
    SecurityPreferences preferences(xsltNewSecurityPrefs());
    if (!preferences)
        return nullptr;
    for (const auto option : {XSLT_SECPREF_READ_FILE, XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
                              XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK}) {
        if (xsltSetSecurityPrefs(preferences.get(), option, xsltSecurityForbid) != 0)
            return nullptr;
    }
    return preferences;
}

// The value of a pseudo-attribute of an instruction: name='value' or name="value".
std::string_view PseudoAttribute(std::string_view instruction, std::string_view name) {
    for (std::size_t at = 0; (at = instruction.find(name, at)) != std::string_view::npos; ++at) {
        const std::size_t behind = at + name.size();
        if (behind + 2 > instruction.size() || instruction[behind] != '=')
            continue;
        const char quote = instruction[behind + 1];
        const std::size_t end = instruction.find(quote, behind + 2);
        if ((quote == '\'' || quote == '"') && end != std::string_view::npos)
            return instruction.substr(behind + 2, end - behind - 2);
    }
    return {};
}

} // namespace

std::string StyleSheetOf(std::string_view document) {
    static constexpr std::string_view kStart = "<?xml-stylesheet ";
    const std::size_t start = document.find(kStart);
    const std::size_t end = start == std::string_view::npos ? start : document.find("?>", start);
    if (end == std::string_view::npos)
        return {};
    const std::string_view instruction = document.substr(start, end - start);
    return PseudoAttribute(instruction, "type") == "text/xsl"
               ? std::string(PseudoAttribute(instruction, "href"))
               : std::string();
}

std::optional<std::string> ApplyStyleSheet(const std::string& document, const std::string& styleSheet,
                                           const StyleParameters& parameters) {
    PrepareLibraries();
    const Document page = Read(document);
    Document sheetDocument = Read(styleSheet);
    if (!page || !sheetDocument)
        return std::nullopt;
    const Sheet sheet(xsltParseStylesheetDoc(sheetDocument.get()));
    if (!sheet)
        return std::nullopt;
    (void)sheetDocument.release(); // the sheet's own from here on
    const SecurityPreferences preferences = NothingButMemory();
    const Context context(xsltNewTransformContext(sheet.get(), page.get()));
    if (!preferences || !context || xsltSetCtxtSecurityPrefs(preferences.get(), context.get()) != 0)
        return std::nullopt;
    for (const auto& [name, value] : parameters) {
        if (xsltQuoteOneUserParam(context.get(), reinterpret_cast<const xmlChar*>(name.c_str()),
                                  reinterpret_cast<const xmlChar*>(value.c_str())) != 0)
            return std::nullopt;
    }
    const Document result(
        xsltApplyStylesheetUser(sheet.get(), page.get(), nullptr, nullptr, nullptr, context.get()));
    if (!result || context->state != XSLT_STATE_OK)
        return std::nullopt;
    xmlChar* text = nullptr;
    int size = 0;
    if (xsltSaveResultToString(&text, &size, result.get(), sheet.get()) != 0 || text == nullptr)
        return std::nullopt;
    std::string html(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
    xmlFree(text);
    return html;
}

} // namespace host
