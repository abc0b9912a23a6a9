#include "nvk/platform/Object.h"

#include <cxxabi.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace tovan {

std::string typeNameOf(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> readable(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                         &std::free);
    return status == 0 && readable ? std::string(readable.get()) : std::string(type.name());
}

bool ClassTag::operator==(const ClassTag& other) const {
    return name_ == other.name_ || std::strcmp(name_, other.name_) == 0;
}

const ClassTag Object::Tag("Norvatek.Object");

Object::~Object() = default;

const ClassTag& Object::getClass() const { return Tag; }

Object* Object::clone() const { throw Exception("Object", "clone()", u"Unable to clone %hs", getClassTag()); }

void Object::serialize(iByteOutputStream&) const {
    throw Exception("Object", "serialize", u"Objects of class %hs cannot be serialized", getClassTag());
}

void Object::deserialize(iByteInputStream&) {
    throw Exception("Object", "deserialize", u"Objects of class %hs cannot be serialized", getClassTag());
}

void Object::failCast(const std::type_info& wanted) const {
    throw BadParameterException("Object", "getAs", u"Object of class %hs does not implement %hs", getClassTag(),
                                typeNameOf(wanted));
}

void CountedObject::deleteInstance() { delete this; }

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, ObjectFactory::Creator> creators;
};

Registry& registry() {
    static Registry r;
    return r;
}

}  // namespace

void ObjectFactory::registerClass(const char* tag, Creator creator) {
    Registry& r = registry();
    bool duplicate;
    {
        std::lock_guard lock(r.mutex);
        duplicate = !r.creators.emplace(tag, creator).second;
    }
    if (duplicate) Exception::warn(u"Class tag \"%hs\" registered twice; the first registration is kept", tag);
}

bool ObjectFactory::isRegistered(const std::string& tag) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    return r.creators.count(tag) != 0;
}

ObjectFactory::Creator ObjectFactory::findCreator(const std::string& tag) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    auto it = r.creators.find(tag);
    return it != r.creators.end() ? it->second : nullptr;
}

Object* ObjectFactory::findCreate(const std::string& tag) {
    Creator creator = findCreator(tag);
    return creator ? creator() : nullptr;
}

Object* ObjectFactory::create(const std::string& tag) {
    if (Object* o = findCreate(tag)) return o;
    throw Exception("ObjectFactory", "create", u"Unknown class tag \"%hs\"", tag);
}

std::vector<std::string> ObjectFactory::registeredTags() {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    std::vector<std::string> tags;
    for (auto& [tag, creator] : r.creators) tags.push_back(tag);
    return tags;
}

void ObjectFactory::discard(Object* o) {
    if (auto* counted = dynamic_cast<CountedObject*>(o)) {
        counted->addRef();
        counted->release();
    } else {
        delete o;
    }
}

ClassRegistration::ClassRegistration(const char* tag, ObjectFactory::Creator creator) {
    ObjectFactory::registerClass(tag, creator);
}

}  // namespace tovan
