#include "nvk/interchange/XmlReader.h"

#include <expat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/Value.h"

namespace nvk {

using tovan::Ptr;
using tovan::WString;

namespace {

constexpr const char* kClass = "XmlReader";

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool allSpace(const std::string& text) {
    for (char c : text)
        if (!isXmlSpace(c)) return false;
    return true;
}

/// Builds the tree from expat's callbacks. Expat is C: an exception must not
/// cross it, so a handler that fails stops the parser and keeps the
/// exception for the caller of feed() to raise.
class TreeBuilder {
public:
    TreeBuilder() : parser_(XML_ParserCreate(nullptr)), document_(CBaseNode::newInstance()) {
        if (!parser_) throw tovan::MemoryException(kClass, "parse", u"Unable to create the XML parser");
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, &TreeBuilder::startElement, &TreeBuilder::endElement);
        XML_SetCharacterDataHandler(parser_, &TreeBuilder::charHandler);
        current_ = document_.get();
    }
    ~TreeBuilder() { XML_ParserFree(parser_); }
    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;

    /// Hands expat the next block; `last` after the final one.
    void feed(const char* data, size_t size, bool last) {
        // expat takes an int length; blocks beyond that go in slices.
        constexpr size_t kSlice = size_t(1) << 30;
        while (size > kSlice) {
            check(XML_Parse(parser_, data, int(kSlice), XML_FALSE));
            data += kSlice;
            size -= kSlice;
        }
        check(XML_Parse(parser_, data, int(size), last ? XML_TRUE : XML_FALSE));
    }

    Ptr<CBaseNode> document() const { return document_; }

private:
    void check(XML_Status status) {
        if (status == XML_STATUS_OK) return;
        if (failure_) std::rethrow_exception(failure_);
        // The place follows expat's message, which alone does not say where the fault is.
        throw tovan::Exception(kClass, "parse", u"Parse error: %hs at line %d, column %d",
                               XML_ErrorString(XML_GetErrorCode(parser_)), XML_GetCurrentLineNumber(parser_),
                               XML_GetCurrentColumnNumber(parser_) + 1);
    }

    template <class Step>
    static void guarded(void* self, Step&& step) {
        auto* b = static_cast<TreeBuilder*>(self);
        if (b->failure_) return;
        try {
            step(*b);
        } catch (...) {
            b->failure_ = std::current_exception();
            XML_StopParser(b->parser_, XML_FALSE);
        }
    }

    static void XMLCALL startElement(void* self, const XML_Char* name, const XML_Char** attributes) {
        guarded(self, [&](TreeBuilder& b) { b.startElementImpl(name, attributes); });
    }
    static void XMLCALL endElement(void* self, const XML_Char*) {
        guarded(self, [](TreeBuilder& b) { b.endElementImpl(); });
    }
    static void XMLCALL charHandler(void* self, const XML_Char* text, int length) {
        guarded(self, [&](TreeBuilder& b) { b.texts_[b.depth_ - 1].append(text, size_t(length)); });
    }

    void startElementImpl(const char* name, const char** attributes) {
        if (depth_ >= XmlReader::kMaxDepth)
            throw tovan::Exception(kClass, "parse", u"Parse error: elements nested deeper than %d levels at line %d, column %d",
                                   XmlReader::kMaxDepth, XML_GetCurrentLineNumber(parser_),
                                   XML_GetCurrentColumnNumber(parser_) + 1);
        Ptr<CBaseNode> node(CBaseNode::newInstance());
        node->setName(nameOf(name).text());
        if (*attributes) {
            // Straight into the storage: one lookup of the name (define()
            // would look again) and the value handed over, not copied.
            CPropertyCollectionData& storage = node->getPropertyCollection().data();
            size_t count = 0;
            while (attributes[2 * count]) ++count;
            storage.Reserve(count);
            for (const char** a = attributes; *a; a += 2) {
                const SharedName attribute = nameOf(a[0]);
                // By name alone: a name starting with "/" is no path here.
                if (storage.GetInternalIndex(attribute.text()) >= 0) {
                    tovan::Exception::warn(
                        u"XML attribute %ls of <%ls> at line %d repeats an earlier one but for case; its value is dropped",
                        attribute.text(), node->getName(), XML_GetCurrentLineNumber(parser_));
                    continue;
                }
                storage.AppendNewProperty(attribute, Ptr<tovan::Value>(new tovan::StringValue(tovan::toWide(a[1]))));
            }
        }
        current_->appendChild(node.get());
        current_ = node.get();
        if (texts_.size() <= size_t(depth_)) texts_.emplace_back();
        texts_[depth_].clear();
        ++depth_;
    }

    void endElementImpl() {
        std::string& text = texts_[--depth_];
        if (!text.empty() && !(current_->hasChildren() && allSpace(text))) setText(tovan::toWide(text));
        current_ = static_cast<CBaseNode*>(current_->findParent());
    }

    // A document repeats a few element and attribute names thousands of
    // times: they come from the thread's table of recent name blocks, so the
    // properties named alike share one block, without a table per document
    // that a small document would pay more to fill than it saves.
    SharedName nameOf(const char* utf8) {
        wide_.clear();
        const char* p = utf8;
        for (; *p && static_cast<unsigned char>(*p) < 0x80; ++p) wide_.push_back(char16_t(*p));
        if (*p) wide_.assign(tovan::toWide(utf8).view());
        return SharedName::cached(std::u16string_view(wide_));
    }

    // What setValue() does on a fresh node, without copying the text once
    // more: an attribute that holds the value's name takes the slow way.
    void setText(WString text) {
        CPropertyCollectionData& storage = current_->getPropertyCollection().data();
        if (storage.GetInternalIndex(textName_) >= 0) {
            current_->setValue(tovan::StringValue(std::move(text)));
            return;
        }
        CProperty* p = storage.AppendNewProperty(textName_, Ptr<tovan::Value>(new tovan::StringValue(std::move(text))));
        p->setFlags(p->getFlags() | tovan::MetaDataNodeValue);
    }

    const WString textName_{u"text-content"};  // the name setValue() gives the property
    XML_Parser parser_;
    Ptr<CBaseNode> document_;
    CBaseNode* current_;
    int depth_ = 0;
    // The character data of each open element, kept by depth and reused.
    std::vector<std::string> texts_;
    std::exception_ptr failure_;
    std::u16string wide_;  // the name being converted, kept for its room
};

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

Ptr<CBaseNode> XmlReader::ReadFile(const WString& path) {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(tovan::toNarrow(path).c_str(), "rb"));
    if (!file) throw tovan::Exception(kClass, "parse", u"Unable to open file \"%ls\": %hs", path, std::strerror(errno));
    TreeBuilder builder;
    std::vector<char> block(64 * 1024);
    for (;;) {
        size_t got = std::fread(block.data(), 1, block.size(), file.get());
        if (got < block.size() && std::ferror(file.get()))
            throw tovan::Exception(kClass, "parse", u"Error reading file \"%ls\": %hs", path, std::strerror(errno));
        bool last = got < block.size();
        builder.feed(block.data(), got, last);
        if (last) break;
    }
    return builder.document();
}

Ptr<CBaseNode> XmlReader::ReadBytes(std::string_view bytes) {
    TreeBuilder builder;
    builder.feed(bytes.data(), bytes.size(), true);
    return builder.document();
}

}  // namespace nvk
