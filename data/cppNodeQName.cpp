#include "data/cppNodeQName.h"

namespace nvk {

using tovan::WString;

void cppNodeQName::splitIfNeeded() const {
    if (!localName_.isEmpty() || qname_.isNull()) return;
    size_t colon = qname_.find(u':');
    if (colon == WString::std_type::npos) {
        localName_ = qname_;
        uriName_.setNull();
    } else {
        localName_ = qname_.substr(colon + 1);
        if (colon == 0)
            uriName_.setNull();
        else
            uriName_ = qname_.substr(0, colon);
    }
}

const WString& cppNodeQName::getQName() const {
    if (qname_.isNull() && !localName_.isNull()) {
        if (uriName_.isEmpty()) {
            qname_ = localName_;
        } else {
            qname_ = uriName_;
            qname_.append(u':').append(localName_.view());
        }
    }
    return qname_;
}

void cppNodeQName::setName(const WString& qname) {
    qname_ = qname;
    localName_.setNull();
    uriName_.setNull();
}

const WString& cppNodeQName::getLocalName() const {
    splitIfNeeded();
    return localName_;
}

const WString& cppNodeQName::getUriName() const {
    splitIfNeeded();
    return uriName_;
}

void cppNodeQName::setLocalName(const WString& localName) {
    splitIfNeeded();
    localName_ = localName;
    qname_.setNull();
}

void cppNodeQName::setUriName(const WString& uriName) {
    splitIfNeeded();
    uriName_ = uriName;
    qname_.setNull();
}

void cppNodeQName::clear() {
    qname_.setNull();
    localName_.setNull();
    uriName_.setNull();
}

}  // namespace nvk
