#pragma once
// One object per thread that hot paths reach on every call (a name looked up, a value made, a
// node read): through a pointer in the initial-exec TLS model, a plain load, instead of the
// call into the loader that a thread_local object of a shared library costs.
//
// The pointer and the flag are a few bytes of static TLS, which the loader keeps for a library
// linked at start (this one is not meant to be loaded late). The object is made on the thread's
// first `get` and ended with the thread; `get` gives null once it has ended (other
// thread-local objects' destructors may still run then).
#include <memory>

namespace tovan {

template <class T>
class PerThread {
public:
    static T* get() {
        if (T* at = at_) [[likely]]
            return at;
        return make();
    }

    /// The object when this thread has one, without making it.
    static T* find() { return at_; }

private:
    // Apart, so that the hot path inlines without the owner's thread-local wrapper.
    [[gnu::noinline]] static T* make() {
        if (gone_) return nullptr;
        owner_.made = std::make_unique<T>();
        return at_ = owner_.made.get();
    }
    struct Owner {
        std::unique_ptr<T> made;
        ~Owner() {
            at_ = nullptr;
            gone_ = true;
        }
    };
    __attribute__((tls_model("initial-exec"))) static inline thread_local T* at_ = nullptr;
    __attribute__((tls_model("initial-exec"))) static inline thread_local bool gone_ = false;
    static inline thread_local Owner owner_;
};

}  // namespace tovan
