#include "nvk/data/cppNodeQName.h"

namespace nvk {

using tovan::WString;

namespace {
const WString s_nullName;
}  // namespace

cppNodeQName::cppNodeQName(const cppNodeQName& other)
    : qname_(other.qname_), parts_(other.parts_ ? std::make_unique<Parts>(*other.parts_) : nullptr) {}

cppNodeQName& cppNodeQName::operator=(const cppNodeQName& other) {
    if (this != &other) {
        qname_ = other.qname_;
        parts_ = other.parts_ ? std::make_unique<Parts>(*other.parts_) : nullptr;
    }
    return *this;
}

cppNodeQName::Parts& cppNodeQName::parts() const {
    if (!parts_) parts_ = std::make_unique<Parts>();
    return *parts_;
}

void cppNodeQName::splitIfNeeded() const {
    if ((parts_ && !parts_->localName.isEmpty()) || qname_.isNull()) return;
    Parts& p = parts();
    size_t colon = qname_.find(u':');
    if (colon == WString::std_type::npos) {
        p.localName = qname_;
        p.uriName.setNull();
    } else {
        p.localName = qname_.substr(colon + 1);
        if (colon == 0)
            p.uriName.setNull();
        else
            p.uriName = qname_.substr(0, colon);
    }
}

const WString& cppNodeQName::getQName() const {
    if (qname_.isNull() && parts_ && !parts_->localName.isNull()) {
        if (parts_->uriName.isEmpty()) {
            qname_ = parts_->localName;
        } else {
            qname_ = parts_->uriName;
            qname_.append(u':').append(parts_->localName.view());
        }
    }
    return qname_;
}

void cppNodeQName::setName(const WString& qname) {
    qname_ = qname;
    parts_.reset();
}

const WString& cppNodeQName::getLocalName() const {
    splitIfNeeded();
    return parts_ ? parts_->localName : s_nullName;
}

const WString& cppNodeQName::getUriName() const {
    splitIfNeeded();
    return parts_ ? parts_->uriName : s_nullName;
}

void cppNodeQName::setLocalName(const WString& localName) {
    splitIfNeeded();
    parts().localName = localName;
    qname_.setNull();
}

void cppNodeQName::setUriName(const WString& uriName) {
    splitIfNeeded();
    parts().uriName = uriName;
    qname_.setNull();
}

void cppNodeQName::clear() {
    qname_.setNull();
    parts_.reset();
}

}  // namespace nvk
