#pragma once
// Root objects, class tags, reference counting and the factory by class tag.
#include <atomic>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Export.h"

namespace tovan {

class iByteOutputStream;
class iByteInputStream;

/// A C++ type's name as its source spells it ("tovan::iNode"), for messages that name the
/// interface an object lacks.
NVK_EXPORT std::string typeNameOf(const std::type_info& type);

/// A class's identity: its dotted tag ("Norvatek.data.BaseNode").
class NVK_EXPORT ClassTag {
public:
    explicit constexpr ClassTag(const char* name) : name_(name) {}
    constexpr const char* name() const { return name_; }
    bool operator==(const ClassTag& other) const;

private:
    const char* name_;
};

/// The root of every framework object.
class NVK_EXPORT Object {
public:
    static const ClassTag Tag;  // "Norvatek.Object"

    Object() = default;
    Object(const Object&) = default;
    Object& operator=(const Object&) = default;
    virtual ~Object();

    virtual const ClassTag& getClass() const;
    virtual const char* getClassTag() const { return getClass().name(); }

    /// A new object equal to this one, owned by the caller (for counted
    /// objects: with no reference taken yet). The default refuses with
    /// "Unable to clone %hs" naming the class tag.
    virtual Object* clone() const;

    /// The object's own byte form. The default refuses with "Objects of class
    /// %hs cannot be serialized" (operation "serialize" or "deserialize").
    virtual void serialize(iByteOutputStream& out) const;
    virtual void deserialize(iByteInputStream& in);

    template <class T>
    T* findAs() {
        return dynamic_cast<T*>(this);
    }
    template <class T>
    const T* findAs() const {
        return dynamic_cast<const T*>(this);
    }
    /// Like findAs, but raises BadParameterException "Object of class %hs
    /// does not implement %hs" instead of returning null.
    template <class T>
    T& getAs() {
        if (T* p = findAs<T>()) return *p;
        failCast(typeid(T));
    }
    template <class T>
    const T& getAs() const {
        if (const T* p = findAs<T>()) return *p;
        failCast(typeid(T));
    }

private:
    [[noreturn]] void failCast(const std::type_info& wanted) const;
};

template <class T>
class ObjectPool;

/// An object whose lifetime is shared through an intrusive, thread-safe
/// reference count. When the count drops to zero, deleteInstance() runs;
/// pooled classes override it to return the object to their pool.
class NVK_EXPORT CountedObject : public Object {
public:
    CountedObject() = default;
    CountedObject(const CountedObject&) : Object() {}  // a copy starts unreferenced
    CountedObject& operator=(const CountedObject&) { return *this; }

    void addRef() const { refs_.fetch_add(1, std::memory_order_relaxed); }
    /// Drops one reference; the last one deletes (or recycles) the object.
    void release() const {
        if (releaseKeepingEnd()) const_cast<CountedObject*>(this)->deleteInstance();
    }
    /// Drops one reference as release() does, but leaves the end of the
    /// object to the caller when it was the last (true): a tree's teardown
    /// gathers the objects it ends, to return them to their pools together.
    bool releaseKeepingEnd() const {
        // The only holder: no other thread can take or drop a reference
        // meanwhile, so the locked read-modify-write on memory that is mostly
        // cold by now can go. The acquire load still orders the end after
        // every earlier holder's release.
        if (refs_.load(std::memory_order_acquire) == 1) {
            refs_.store(0, std::memory_order_relaxed);
            return true;
        }
        return refs_.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }
    int getRefCount() const { return refs_.load(std::memory_order_acquire); }

    /// Called when the last reference goes; the default deletes the object.
    virtual void deleteInstance();

protected:
    /// The first reference on an object just made, that no other thread can reach yet:
    /// a plain store instead of a locked increment.
    void takeFirstRef() const { refs_.store(1, std::memory_order_relaxed); }

private:
    template <class T>
    friend class ObjectPool;  // its hand-outs give objects no other thread can reach
    mutable std::atomic<int> refs_{0};
};

/// Holder of one reference on a counted object.
template <class T>
class Ptr {
public:
    Ptr() = default;
    Ptr(std::nullptr_t) {}
    /// Takes a new reference on `p`.
    explicit Ptr(T* p) : p_(p) {
        if (p_) p_->addRef();
    }
    Ptr(const Ptr& o) : Ptr(o.p_) {}
    Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    template <class U>
        requires std::is_convertible_v<U*, T*>
    Ptr(const Ptr<U>& o) : Ptr(o.get()) {}
    ~Ptr() { reset(); }

    Ptr& operator=(Ptr o) noexcept {
        std::swap(p_, o.p_);
        return *this;
    }

    /// Wraps a pointer that already carries a reference for the holder.
    static Ptr adopt(T* p) {
        Ptr r;
        r.p_ = p;
        return r;
    }
    /// Gives the reference up to the caller.
    T* detach() { return std::exchange(p_, nullptr); }

    void reset() {
        if (T* p = std::exchange(p_, nullptr)) p->release();
    }
    /// Holds `p` instead, taking a new reference on it: the raw-pointer form
    /// of assignment, spelled out because construction from a raw pointer is
    /// explicit (a pointer that already carries a reference goes to `adopt`).
    void reset(T* p) { *this = Ptr(p); }
    T* get() const { return p_; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    explicit operator bool() const { return p_ != nullptr; }
    bool operator==(const Ptr& o) const { return p_ == o.p_; }
    bool operator==(std::nullptr_t) const { return p_ == nullptr; }

private:
    T* p_ = nullptr;
};

/// Makes a new object of a registered class from its tag.
class NVK_EXPORT ObjectFactory {
public:
    using Creator = Object* (*)();

    /// Registering a tag twice keeps the first creator (a warning is issued).
    static void registerClass(const char* tag, Creator creator);
    static bool isRegistered(const std::string& tag);
    /// Null for an unknown tag.
    static Object* findCreate(const std::string& tag);
    /// Raises Exception "Unknown class tag \"%hs\"" for an unknown tag.
    static Object* create(const std::string& tag);
    static std::vector<std::string> registeredTags();

    /// Creates by tag and takes the object as `T`; raises BadParameterException
    /// "Class %hs does not implement %hs" (and discards the object) when it is not one.
    template <class T>
    static Ptr<T> createAs(const std::string& tag) {
        return take<T>(create(tag), tag);
    }
    /// Null for an unknown tag. A creator, once registered, stays the tag's creator, so a
    /// reader of many objects of one class may keep it instead of asking for every object.
    static Creator findCreator(const std::string& tag);
    /// As createAs, with the creator findCreator gave for `tag`.
    template <class T>
    static Ptr<T> createAs(Creator creator, const std::string& tag) {
        return take<T>(creator(), tag);
    }

private:
    template <class T>
    static Ptr<T> take(Object* o, const std::string& tag) {
        if (T* t = dynamic_cast<T*>(o)) return Ptr<T>(t);
        discard(o);
        throw BadParameterException("ObjectFactory", "createAs", u"Class %hs does not implement %hs", tag,
                                    typeNameOf(typeid(T)));
    }
    static void discard(Object* o);
};

/// Registers a class with the factory while the library loads:
///   static const ClassRegistration reg("Norvatek.data.BaseNode", &CBaseNode::createObject);
struct NVK_EXPORT ClassRegistration {
    ClassRegistration(const char* tag, ObjectFactory::Creator creator);
};

}  // namespace tovan
