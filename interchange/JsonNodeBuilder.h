#pragma once
// Data nodes straight from JSON text, token by token.
#include <cstddef>
#include <exception>
#include <string>
#include <vector>

#include "nvk/interchange/CJsonConverter.h"
#include "nvk/interchange/JsonElements.h"
#include "nvk/interchange/JsonInputStream.h"
#include "nvk/interchange/JsonScanner.h"

namespace nvk {

/// Reads one top-level object into a CJsonConverter with the outcome of the
/// reader's three steps run in turn (scan the whole value into tokens, parse
/// them into an element tree, convert the tree), but without the token list
/// and, for objects, without the tree: a record's objects are nodes as soon
/// as they are read. Those two structures and their teardown were half of
/// the time of reading a record.
///
/// The outcome is the same in every respect, failures included:
///  - a parse error is raised only after the rest of the value has been
///    scanned, so that a scan error further on wins, as it does when the
///    scan comes first; the stream then stops where the scan stopped;
///  - the converter's first exception is kept, the value is still read to
///    its end (a scan or parse error wins over it), and it is raised as it
///    was thrown by RaiseConversionFailure();
///  - an array is held as elements until it is complete, because the
///    converter types an array from all of its elements; but from its first
///    element that is an object on, the converter walks it element by
///    element anyway, so from there on it is built as it comes.
class JsonNodeBuilder {
public:
    /// The stream's next character must be the object's "{".
    JsonNodeBuilder(cajun::json::JsonInputStream& in, CJsonConverter& converter);
    ~JsonNodeBuilder();
    JsonNodeBuilder(const JsonNodeBuilder&) = delete;
    JsonNodeBuilder& operator=(const JsonNodeBuilder&) = delete;

    /// Raises ScanException and ParseException as Scanner::Scan and
    /// Parser::ParseObject do.
    void ReadObject();
    /// Raises what the converter raised first, if anything.
    void RaiseConversionFailure() const;

private:
    bool peek();
    bool nextIs(cajun::json::TokenKind kind) { return peek() && token_.kind == kind; }
    const cajun::json::JsonToken& match(cajun::json::TokenKind kind);
    void enter(const cajun::json::JsonToken& token);
    void drain();

    // Members are nodes and properties as they come.
    void objectMembers();
    void value();
    void arrayElements();
    // Elements, for arrays that are held whole.
    void element(cajun::json::Element& out);
    void elementObject(cajun::json::Object& out);
    void elementArray(cajun::json::Array& out);

    template <class F>
    void convert(F&& step) {
        if (failure_) return;  // the converter may be halfway through a step
        try {
            step();
        } catch (...) {
            failure_ = std::current_exception();
        }
    }

    // The scanner and the name stack are kept per thread from one read to
    // the next: both grow past a kilobyte on real records, and a request of
    // that size just after a record's tree was released makes the C library
    // merge all of the tree's freed chunks first.
    struct Workspace;
    static Workspace* takeWorkspace();

    cajun::json::JsonInputStream& in_;
    CJsonConverter& converter_;
    bool consumeBefore_;
    Workspace* workspace_;
    cajun::json::Scanner& scanner_;
    cajun::json::JsonToken token_;  // the next token, while loaded_
    bool loaded_ = false;
    bool scanned_ = false;  // the scanner has nothing more
    int depth_ = 0;
    std::exception_ptr failure_;
    // The member names of the open objects, for the duplicate check: one
    // stack of reused strings, each object its own range.
    std::vector<tovan::WString>& names_;
    size_t namesUsed_ = 0;
};

}  // namespace nvk
