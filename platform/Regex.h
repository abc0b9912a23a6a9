#pragma once
// vcRegex: a regular expression compiled once and searched many times, on
// PCRE2 (its 16-bit library, so that wide text is searched without a copy).
//
// The syntax is PCRE2's (Perl's). An object may be searched from several
// threads at once; setting the expression while another thread searches is
// not allowed.
#include <memory>

#include "nvk/platform/Array.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan {

class NVK_EXPORT vcRegex {
public:
    /// Holds no expression yet (hasExpression() is false).
    vcRegex();
    /// Compiles `pattern` as setExpression does.
    explicit vcRegex(const WString& pattern);
    ~vcRegex();
    vcRegex(const vcRegex&) = delete;
    vcRegex& operator=(const vcRegex&) = delete;

    /// Compiles `pattern` and keeps it for every later search. A pattern that
    /// does not compile raises BadParameterException "Invalid regular
    /// expression \"%ls\" at offset %d: %ls" (PCRE2's message; class
    /// "vcRegex", operation "setExpression") and leaves the object as it was.
    void setExpression(const WString& pattern);
    bool hasExpression() const { return code_ != nullptr; }
    /// The text last compiled; null when there is none.
    const WString& getExpression() const { return expression_; }
    /// Number of capturing groups of the expression (0 without one).
    int getGroupCount() const;

    /// Searches `text` for the first match. On a match, when `groups` is given
    /// it is replaced by the whole match (entry 0) and each capturing group in
    /// order; a group that took no part in the match is a null string. Half
    /// of a surrogate pair in `text` matches nothing, not even ".". Without
    /// a match `groups` is left as it was. Raises Exception "No regular
    /// expression to search with" (operation "search") when none was set, and
    /// "Regular expression search failed: %ls" when PCRE2 gives up (its match
    /// limit, for instance).
    bool search(const WString& text, Array<WString>* groups = nullptr) const;

private:
    struct Code;
    WString expression_;
    Code* code_ = nullptr;
};

}  // namespace tovan
