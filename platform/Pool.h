#pragma once
// Per-class object pools and leak detectors.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Lock.h"

namespace tovan {

/// Counts the live objects of one class. Every detector is listed in a
/// process-wide registry so that a test run can end by asserting that nothing
/// of any class is still alive.
class NVK_EXPORT LeakDetector {
public:
    explicit LeakDetector(const char* className);
    ~LeakDetector();
    LeakDetector(const LeakDetector&) = delete;
    LeakDetector& operator=(const LeakDetector&) = delete;

    void AddToLeakDetector() { live_.fetch_add(1, std::memory_order_relaxed); }
    void RemoveFromLeakDetector() { live_.fetch_sub(1, std::memory_order_relaxed); }
    /// The objects counted here, plus those of the pool that reports to it.
    long live() const {
        return live_.load(std::memory_order_relaxed) + (pooled_ ? pooled_->load(std::memory_order_relaxed) : 0);
    }
    /// A pool's own count of the objects it handed out, kept under the pool's
    /// lock: counting them here as well would cost an atomic operation per
    /// object made and dropped.
    void reportPoolCount(const std::atomic<int>* count) { pooled_ = count; }
    const char* className() const { return className_; }

    struct Entry {
        std::string className;
        long live;
    };
    /// Every class with live objects, by name.
    static std::vector<Entry> liveObjects();
    static long totalLive();

private:
    const char* className_;
    std::atomic<long> live_{0};
    const std::atomic<int>* pooled_ = nullptr;
};

/// Base of pooled classes: the hooks the pool calls when an object is reused
/// (onActivate, before it is handed out again) and when it is returned
/// (onDeactivate, before it goes on the free list, or before it is deleted
/// when the pool does not keep it). Neither runs under the pool's lock.
class NVK_EXPORT PooledObject {
public:
    virtual ~PooledObject();
    virtual void onActivate() {}
    virtual void onDeactivate() {}
};

/// The free list of one class. `T` is a CountedObject with the hooks of a
/// PooledObject (its own or inherited; the pool calls them on `T`).
///
/// newInstance() hands out an object with no reference taken (wrap it in a
/// Ptr, or use allocate() for a raw pointer that owns one reference);
/// deleteInstance() is reached from CountedObject::release() when the last
/// reference goes. All bookkeeping is under one lock per class, taken with
/// the library's 60000 ms timeout.
template <class T>
class ObjectPool {
public:
    explicit ObjectPool(const char* className) : className_(className), detector_(className) {
        detector_.reportPoolCount(&outstanding_);
    }
    ~ObjectPool() { purge(); }
    ObjectPool(const ObjectPool&) = delete;
    ObjectPool& operator=(const ObjectPool&) = delete;

    T* newInstance() {
        T* obj = nullptr;
        void* room = nullptr;
        {
            AutoCriticalSection lock(lock_);
            if (!free_.empty()) {
                obj = free_.back();
                free_.pop_back();
                // Freed objects are cold by the time they come back: start
                // fetching the next one now, for the next call.
                if (!free_.empty()) {
                    const char* next = reinterpret_cast<const char*>(free_.back());
                    __builtin_prefetch(next, 1);
                    __builtin_prefetch(next + 64, 1);
                }
            } else if constexpr (kSlabbed) {
                room = carve();
            }
            count(+1);
        }
        if (obj) {
            obj->onActivate();
        } else {
            try {
                obj = room ? new (room) T() : new T();
            } catch (...) {
                AutoCriticalSection lock(lock_);
                if (room) dropFromSlab(slabOf(room));
                count(-1);
                throw;
            }
        }
        return obj;
    }

    /// `n` new instances, as newInstance each, for one turn of the lock: a
    /// copy that makes a whole collection's properties at once would otherwise
    /// take it once per property.
    void newInstances(T** out, size_t n) {
        size_t reused = 0;
        {
            AutoCriticalSection lock(lock_);
            while (reused < n && !free_.empty()) {
                out[reused++] = free_.back();
                free_.pop_back();
            }
            size_t carved = reused;
            try {
                for (; carved < n; ++carved) {
                    if constexpr (kSlabbed) out[carved] = static_cast<T*>(carve());
                    else out[carved] = nullptr;
                }
            } catch (...) {
                // Nothing handed out yet: the taken objects go back as they were.
                if constexpr (kSlabbed)
                    for (size_t i = reused; i < carved; ++i) dropFromSlab(slabOf(out[i]));
                free_.insert(free_.end(), std::make_reverse_iterator(out + reused), std::make_reverse_iterator(out));
                throw;
            }
            for (size_t i = 0; i < n; ++i) count(+1);
        }
        for (size_t i = 0; i < reused; ++i) out[i]->onActivate();
        for (size_t i = reused; i < n; ++i) {
            try {
                out[i] = out[i] ? new (static_cast<void*>(out[i])) T() : new T();
            } catch (...) {
                // The ones made go back through the usual return; the rest never existed.
                for (size_t j = 0; j < i; ++j) deleteInstance(out[j]);
                AutoCriticalSection lock(lock_);
                for (size_t j = i; j < n; ++j) {
                    if (out[j]) dropFromSlab(slabOf(out[j]));
                    count(-1);
                }
                throw;
            }
        }
    }

    /// A new instance carrying one reference for the caller.
    T* allocate() {
        T* obj = newInstance();
        obj->addRef();
        return obj;
    }

    /// Drops the caller's reference taken by allocate().
    static void deallocate(T* obj) {
        if (obj) obj->release();
    }

    void deleteInstance(T* obj) {
        if (obj->getRefCount() != 0)
            throw Exception(className_, "deleteInstance",
                            u"Tried to deleteInstance() an object with nonzero ref count: %d\n", obj->getRefCount());
        // The hook releases what the object holds, often objects of other
        // pooled classes whose hooks release more. It runs without this
        // pool's lock: held, it would order the pools' locks one way in one
        // thread (a collection's storage, then its properties) and the other
        // way in another (a property, then its metadata's storage), and keep
        // every other thread out of this pool for a whole tree's teardown.
        // An object the pool does not keep is deleted cleaned out.
        obj->onDeactivate();
        bool keep;
        {
            AutoCriticalSection lock(lock_);
            keep = enabled_ && (capacity_ < 0 || free_.size() < size_t(capacity_));
            if (keep) {
                if (outstanding_.load(std::memory_order_relaxed) <= 0)
                    throw Exception(className_, "deleteInstance",
                                    u"Object leak, object being returned to pool when none were outstanding...");
                free_.push_back(obj);
            }
            count(-1);
        }
        if (!keep) destroy(obj);
    }

    /// `n` objects whose last reference went, returned as deleteInstance
    /// returns each, for one turn of the lock: a tree's teardown ends its
    /// objects together. The hooks run first, in order, without the lock;
    /// the last object given is the first handed out again.
    void deleteInstances(T* const* objs, size_t n) {
        for (size_t i = 0; i < n; ++i)
            if (objs[i]->getRefCount() != 0)
                throw Exception(className_, "deleteInstance",
                                u"Tried to deleteInstance() an object with nonzero ref count: %d\n",
                                objs[i]->getRefCount());
        for (size_t i = 0; i < n; ++i) objs[i]->onDeactivate();
        putBack(objs, n);
    }

    /// `n` objects whose last reference went (their ender saw the count reach zero) and that
    /// the ender emptied as the hook would have: returned as deleteInstances returns them,
    /// without the hook. A tree's end empties its own nodes, collections and properties with
    /// their classes known, and each only once.
    void returnEmptied(T* const* objs, size_t n) { putBack(objs, n); }

    /// Fresh objects handed to one user a batch at a time (each as newInstance
    /// gives it, without a reference): one turn of the pool's lock per batch
    /// instead of per object. Batches grow from 2 to 32 while it is used, so a
    /// small job takes little more than it needs; what is left goes back with
    /// release(), which the user calls when its job is done so that the pool's
    /// counts are exact between jobs. One thread at a time.
    class Handouts {
    public:
        explicit Handouts(ObjectPool& pool) : pool_(pool) {}
        ~Handouts() { release(); }
        Handouts(const Handouts&) = delete;
        Handouts& operator=(const Handouts&) = delete;

        T* take() {
            if (next_ == count_) refill();
            return spare_[next_++];
        }
        /// As take, with the caller's first reference taken: a plain store, as the object
        /// was on the free list and nobody else can reach it. A locked add here waits for
        /// every store before it, on the cold objects a reader has just filled.
        T* takeReferenced() {
            T* obj = take();
            obj->takeFirstRef();
            return obj;
        }
        void release() {
            if (next_ != count_) {
                // Last given, first handed out again: the next taken is the one
                // this batch would have given next.
                std::reverse(spare_ + next_, spare_ + count_);
                pool_.deleteInstances(spare_ + next_, count_ - next_);
            }
            next_ = count_ = 0;
            size_ = 2;
        }

    private:
        static constexpr uint32_t kMost = 32;
        void refill() {
            pool_.newInstances(spare_, size_);  // nothing is handed out when this fails
            // Recycled objects are cold; they are all written to shortly.
            for (uint32_t i = 0; i < size_; ++i) {
                __builtin_prefetch(spare_[i], 1);
                __builtin_prefetch(reinterpret_cast<const char*>(spare_[i]) + sizeof(T) - 1, 1);
            }
            count_ = size_;
            next_ = 0;
            size_ = std::min(size_ * 2, kMost);
        }

        ObjectPool& pool_;
        T* spare_[kMost];
        uint32_t next_ = 0, count_ = 0, size_ = 2;
    };

    /// Gathers objects whose last reference went (see
    /// CountedObject::releaseKeepingEnd) and returns them to the pool a
    /// batch at a time, in the order given; with `emptied`, the caller has
    /// emptied them already and the hooks are not run (returnEmptied).
    class Returns {
    public:
        explicit Returns(ObjectPool& pool, bool emptied = false) : pool_(pool), emptied_(emptied) {}
        ~Returns() { flush(); }
        Returns(const Returns&) = delete;
        Returns& operator=(const Returns&) = delete;
        void add(T* obj) {
            items_[count_++] = obj;
            if (count_ == kBatch) flush();
        }
        void flush() {
            const size_t n = std::exchange(count_, 0);
            if (!n) return;
            if (emptied_)
                pool_.returnEmptied(items_, n);
            else
                pool_.deleteInstances(items_, n);
        }

    private:
        static constexpr size_t kBatch = 64;
        ObjectPool& pool_;
        const bool emptied_;
        T* items_[kBatch];
        size_t count_ = 0;
    };

    /// Pooling on or off; switching it off empties the free list.
    void setEnabled(bool enabled) {
        {
            AutoCriticalSection lock(lock_);
            enabled_ = enabled;
        }
        if (!enabled) purge();
    }
    bool isEnabled() const { return enabled_; }
    /// The most objects kept on the free list; -1 for no limit.
    void setCapacity(int capacity) {
        AutoCriticalSection lock(lock_);
        capacity_ = capacity;
    }
    int getCapacity() const { return capacity_; }
    int getOutstanding() const { return outstanding_.load(std::memory_order_relaxed); }
    size_t getFreeCount() {
        AutoCriticalSection lock(lock_);
        return free_.size();
    }
    LeakDetector& leakDetector() { return detector_; }

    /// Destroys every object on the free list, and frees each slab left
    /// without objects.
    void purge() {
        std::vector<T*> doomed;
        {
            AutoCriticalSection lock(lock_);
            doomed.swap(free_);
        }
        for (T* obj : doomed) destroy(obj);
    }
    /// Slabs held (each SlabBytes), for tests and measurements.
    size_t getSlabCount() {
        AutoCriticalSection lock(lock_);
        return slabs_.size();
    }

    /// Objects are carved out of slabs of this size, so that an object costs
    /// its own size (no heap header, no rounding) and objects made one after
    /// another lie side by side. A class too large for a slab to hold a few
    /// dozen is allocated one by one.
    static constexpr size_t SlabBytes = 64 * 1024;

private:
    struct Slab {
        size_t objects;  // carved and not destroyed: handed out or on the free list
    };
    static constexpr size_t kFirstObject = (sizeof(Slab) + alignof(T) - 1) / alignof(T) * alignof(T);
    static constexpr size_t kPerSlab = (SlabBytes - kFirstObject) / sizeof(T);
    static constexpr bool kSlabbed = kPerSlab >= 32 && alignof(T) <= alignof(std::max_align_t);

    /// Room for one object, under the lock.
    void* carve() {
        if (next_ == end_) {
            // Room first, so that the insert below cannot fail; grown
            // geometrically, as a reserve of one more would copy the whole
            // list for every slab of a large tree.
            if (slabs_.size() == slabs_.capacity()) slabs_.reserve(std::max<size_t>(16, slabs_.size() * 2));
            // A plain heap block: an aligned one (to find the slab from the
            // address) cost a heap split per slab and made building slower.
            auto* slab = static_cast<Slab*>(std::malloc(SlabBytes));
            if (!slab) throw std::bad_alloc();
            slab->objects = 0;
            slabs_.insert(std::upper_bound(slabs_.begin(), slabs_.end(), slab), slab);
            next_ = reinterpret_cast<char*>(slab) + kFirstObject;
            end_ = next_ + kPerSlab * sizeof(T);
            current_ = slab;
        }
        void* room = next_;
        next_ += sizeof(T);
        ++current_->objects;
        return room;
    }
    /// The slab holding `obj`, or null for an object made elsewhere (a copy
    /// made with new and then released); under the lock, and only on the rare
    /// paths that destroy objects.
    Slab* slabOf(const void* obj) const {
        auto* p = static_cast<const char*>(obj);
        auto it = std::upper_bound(slabs_.begin(), slabs_.end(), p,
                                   [](const char* a, Slab* b) { return a < reinterpret_cast<const char*>(b); });
        if (it == slabs_.begin()) return nullptr;
        Slab* slab = *--it;
        return p < reinterpret_cast<const char*>(slab) + SlabBytes ? slab : nullptr;
    }
    /// One object of `slab` gone, under the lock; the slab goes with its last.
    void dropFromSlab(Slab* slab) {
        if (--slab->objects != 0) return;
        if (slab == current_) next_ = end_ = nullptr, current_ = nullptr;
        slabs_.erase(std::lower_bound(slabs_.begin(), slabs_.end(), slab));
        std::free(slab);
    }
    /// The returns of deleteInstances after the hooks: one turn of the lock for all `n`.
    void putBack(T* const* objs, size_t n) {
        size_t kept = 0;
        {
            AutoCriticalSection lock(lock_);
            if (enabled_ && capacity_ < 0)
                kept = n;
            else if (enabled_ && free_.size() < size_t(capacity_))
                kept = std::min(n, size_t(capacity_) - free_.size());
            if (kept != 0) {
                if (outstanding_.load(std::memory_order_relaxed) < int(kept))
                    throw Exception(className_, "deleteInstance",
                                    u"Object leak, object being returned to pool when none were outstanding...");
                free_.insert(free_.end(), objs, objs + kept);
            }
            outstanding_.store(outstanding_.load(std::memory_order_relaxed) - int(n), std::memory_order_relaxed);
        }
        for (size_t i = kept; i < n; ++i) destroy(objs[i]);
    }
    /// Ends an object the pool does not keep.
    void destroy(T* obj) {
        if constexpr (kSlabbed) {
            obj->~T();  // runs outside the lock, like the hooks, for the same reason
            AutoCriticalSection lock(lock_);
            if (Slab* slab = slabOf(obj)) {
                dropFromSlab(slab);
                return;
            }
        } else {
            delete obj;
            return;
        }
        ::operator delete(obj);
    }

    const char* className_;
    mutable CriticalSection lock_;
    std::vector<T*> free_;
    int capacity_ = -1;
    bool enabled_ = true;
    // Changed only under lock_ (so a plain load and store will do), read
    // without it by the leak detector.
    std::atomic<int> outstanding_{0};
    void count(int delta) {
        outstanding_.store(outstanding_.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
    }
    LeakDetector detector_;
    std::vector<Slab*> slabs_;  // by address, to tell a slab's object from one made elsewhere
    Slab* current_ = nullptr;    // the newest slab, and its unused part
    char* next_ = nullptr;
    char* end_ = nullptr;
};

}  // namespace tovan
