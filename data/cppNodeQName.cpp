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
    const WString& qname = qname_.text();
    size_t colon = qname.find(u':');
    if (colon == WString::std_type::npos) {
        p.localName = qname;
        p.uriName.setNull();
    } else {
        p.localName = qname.substr(colon + 1);
        if (colon == 0)
            p.uriName.setNull();
        else
            p.uriName = qname.substr(0, colon);
    }
}

const WString& cppNodeQName::getQName() const {
    if (qname_.isNull() && parts_ && !parts_->localName.isNull()) {
        if (parts_->uriName.isEmpty()) {
            qname_ = SharedName(parts_->localName);
        } else {
            WString joined = parts_->uriName;
            joined.append(u':').append(parts_->localName.view());
            qname_ = SharedName(joined);
        }
    }
    return qname_.text();
}

void cppNodeQName::setName(const WString& qname) {
    qname_ = SharedName::cached(qname);
    parts_.reset();
}

void cppNodeQName::setName(SharedName qname) {
    qname_ = std::move(qname);
    parts_.reset();
}

void cppNodeQName::shareName(const cppNodeQName& other) {
    const WString& text = other.getQName();  // makes other's block when only its parts are set
    if (other.qname_.isNull()) {
        setName(text);
        return;
    }
    qname_ = other.qname_;
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
    qname_ = SharedName();
}

void cppNodeQName::setUriName(const WString& uriName) {
    splitIfNeeded();
    parts().uriName = uriName;
    qname_ = SharedName();
}

void cppNodeQName::clear() {
    qname_.dropGathered();
    parts_.reset();
}

}  // namespace nvk
