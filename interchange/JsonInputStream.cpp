#include "nvk/interchange/JsonInputStream.h"

namespace cajun::json {

JsonInputStream::JsonInputStream(tovan::iFileInterface* file) : file_(file) {}

bool JsonInputStream::fill() {
    while (cur_ == end_ && !fileEnd_) {
        std::u16string_view block = file_->readBlock();
        if (block.empty()) {
            fileEnd_ = true;
        } else {
            cur_ = block.data();
            end_ = cur_ + block.size();
        }
    }
    return cur_ != end_;
}

bool JsonInputStream::slowEOS() {
    if (firstSet_ || secondSet_) return false;
    if (fill()) return false;
    return !trailingSet_;
}

tovan::wchar JsonInputStream::slowPeek() {
    if (firstSet_) return first_;
    if (secondSet_) return second_;
    if (fill()) return *cur_;
    return trailingSet_ ? trailing_ : tovan::wchar(0);
}

tovan::wchar JsonInputStream::slowGet() {
    if (firstSet_) {
        firstSet_ = false;
        updateInjecting();
        return first_;
    }
    if (secondSet_) {
        secondSet_ = false;
        updateInjecting();
        return second_;
    }
    if (fill()) return *cur_++;
    if (trailingSet_) {
        trailingSet_ = false;
        return trailing_;
    }
    return 0;
}

void JsonInputStream::SetFirstInjected(tovan::wchar c) {
    first_ = c;
    firstSet_ = true;
    updateInjecting();
}

void JsonInputStream::SetSecondInjected(tovan::wchar c) {
    second_ = c;
    secondSet_ = true;
    updateInjecting();
}

void JsonInputStream::SetTrailingInjected(tovan::wchar c) {
    trailing_ = c;
    trailingSet_ = true;
}

void JsonInputStream::ClearInjected() {
    firstSet_ = secondSet_ = trailingSet_ = false;
    updateInjecting();
}

}  // namespace cajun::json
