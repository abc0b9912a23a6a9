#include "nvk/services/ClientSession.h"

#include "nvk/platform/Pool.h"

using namespace tovan;

namespace nvk {

namespace {

LeakDetector& detector() {
    static LeakDetector d("ClientSession");
    return d;
}

const ClassRegistration registration("Norvatek.ClientSession", &ClientSession::createObject);

}  // namespace

const ClassTag ClientSession::Tag("Norvatek.ClientSession");

ClientSession::ClientSession() : credentials_(CCredentials::newInstance()) { detector().AddToLeakDetector(); }

ClientSession::ClientSession(const WString& key) : ClientSession() { SetSessionKey(key); }

ClientSession::ClientSession(const ClientSession& other)
    : CountedObject(), iClientSession(), key_(other.key_), credentials_(CCredentials::newInstance()) {
    *credentials_ = *other.credentials_;
    detector().AddToLeakDetector();
}

ClientSession& ClientSession::operator=(const ClientSession& other) {
    if (this != &other) {
        *credentials_ = *other.credentials_;
        key_ = other.key_;
    }
    return *this;
}

ClientSession::~ClientSession() { detector().RemoveFromLeakDetector(); }

bool ClientSession::SetSessionKey(const WString& key, WString*) {
    key_ = key;
    credentials_->SetCredentialsString(key);
    credentials_->DecryptBody(false);
    return true;
}

DecryptStatusCode ClientSession::DecryptBody(bool) {
    throw Exception("ClientSession", "DecryptBody", u"THIS METHOD IS DEPRECATED");
}

void ClientSession::SetRolesCache(CountedObject* cache) {
    credentials_->SetRolesCache(cache ? &cache->getAs<CAuthRolesCache>() : nullptr);
}

}  // namespace nvk
