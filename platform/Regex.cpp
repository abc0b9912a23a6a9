#define PCRE2_CODE_UNIT_WIDTH 16
#include "nvk/platform/Regex.h"

#include <pcre2.h>

#include "nvk/platform/Exception.h"

namespace tovan {
namespace {

constexpr const char* kClass = "vcRegex";

WString pcreMessage(int code) {
    PCRE2_UCHAR16 buffer[256];
    int length = pcre2_get_error_message(code, buffer, sizeof buffer / sizeof buffer[0]);
    if (length < 0) return WString(u"unknown error");
    return WString(reinterpret_cast<const char16_t*>(buffer), size_t(length));
}

}  // namespace

struct vcRegex::Code {
    pcre2_code* code;
};

vcRegex::vcRegex() = default;

vcRegex::vcRegex(const WString& pattern) { setExpression(pattern); }

vcRegex::~vcRegex() {
    if (code_) {
        pcre2_code_free(code_->code);
        delete code_;
    }
}

void vcRegex::setExpression(const WString& pattern) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    std::u16string_view text = pattern.view();
    // Text may hold half a surrogate pair; such a code unit matches nothing,
    // where a strict UTF-16 search would refuse the whole text.
    pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR16>(text.data()), text.size(),
                                     PCRE2_UTF | PCRE2_MATCH_INVALID_UTF, &error, &offset, nullptr);
    if (!code)
        throw BadParameterException(kClass, "setExpression", u"Invalid regular expression \"%ls\" at offset %d: %ls",
                                    pattern, int(offset), pcreMessage(error));
    // JIT compilation makes each search several times faster; where the
    // platform lacks it, the interpreter gives the same answers.
    pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
    if (code_) {
        pcre2_code_free(code_->code);
        code_->code = code;
    } else {
        code_ = new Code{code};
    }
    expression_ = pattern;
}

int vcRegex::getGroupCount() const {
    if (!code_) return 0;
    uint32_t count = 0;
    pcre2_pattern_info(code_->code, PCRE2_INFO_CAPTURECOUNT, &count);
    return int(count);
}

bool vcRegex::search(const WString& text, Array<WString>* groups) const {
    if (!code_) throw Exception(kClass, "search", u"No regular expression to search with");
    std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> match(
        pcre2_match_data_create_from_pattern(code_->code, nullptr), &pcre2_match_data_free);
    if (!match) throw MemoryException(kClass, "search", u"Out of memory for a regular expression match");
    std::u16string_view subject = text.view();
    int rc = pcre2_match(code_->code, reinterpret_cast<PCRE2_SPTR16>(subject.data()), subject.size(), 0, 0,
                         match.get(), nullptr);
    if (rc == PCRE2_ERROR_NOMATCH) return false;
    if (rc < 0) throw Exception(kClass, "search", u"Regular expression search failed: %ls", pcreMessage(rc));
    if (groups) {
        const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match.get());
        uint32_t pairs = pcre2_get_ovector_count(match.get());
        Array<WString> found;
        for (uint32_t i = 0; i < pairs; ++i) {
            if (ovector[2 * i] == PCRE2_UNSET) found.push_back(WString());
            else found.push_back(WString(subject.data() + ovector[2 * i], ovector[2 * i + 1] - ovector[2 * i]));
        }
        *groups = std::move(found);
    }
    return true;
}

}  // namespace tovan
