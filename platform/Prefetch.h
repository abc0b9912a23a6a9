#pragma once
// Fetching memory ahead of a walk over a tree of objects.
//
// A tree's objects mostly lie in memory in the order its walks visit them:
// trees are built depth first, and the pools hand a released tree's objects
// back in that order. But a walk chases pointers: each node is a chain of
// objects (collection, storage, slots, properties, values) whose addresses it
// learns one link at a time, and on a tree that is not in cache every link
// waits for memory. Fetching the memory a few kilobytes past each node, in
// the direction the walk is moving, has it in cache by the time the walk
// arrives. Where the guess is wrong it costs a little bandwidth, nothing else:
// a prefetch never faults.
#include <cstdint>

namespace tovan {

class MemoryAhead {
public:
    /// Call with each node as the walk reaches it.
    void visit(const void* node) {
        // Addresses as integers: the memory ahead is no object of ours.
        const uintptr_t here = reinterpret_cast<uintptr_t>(node);
        const bool forward = here >= last_;
        last_ = here;
        // The window ahead, in whole lines. Nodes lie closer together than the
        // window is long, so most of it was asked for at an earlier visit in
        // the same direction: only the rest is asked for. Each direction keeps
        // its own window, as a walk down a tree turns back and forth.
        if (forward) {
            const uintptr_t from = (here + kDistance) & ~(kLine - 1), to = from + kLines * kLine;
            const uintptr_t start = ahead_ > from && ahead_ <= to ? ahead_ : from;
            ahead_ = to;
            fetch(start, to);
        } else {
            const uintptr_t to = (here - kDistance) & ~(kLine - 1), from = to - kLines * kLine;
            const uintptr_t end = behind_ >= from && behind_ < to ? behind_ : to;
            behind_ = from;
            fetch(from, end);
        }
    }

private:
    static void fetch(uintptr_t from, uintptr_t to) {
        for (uintptr_t at = from; at < to; at += kLine) __builtin_prefetch(reinterpret_cast<const void*>(at));
    }
    // A node and its objects take a few hundred bytes to a kilobyte: a
    // kilobyte per node keeps up, and starting eight kilobytes ahead covers
    // the memory's delay without reaching past what the caches hold.
    static constexpr uintptr_t kDistance = 8192, kLine = 64, kLines = 16;
    uintptr_t last_ = 0;    // the node visited before
    uintptr_t ahead_ = 0;   // the end of the window asked for walking forward
    uintptr_t behind_ = 0;  // the start of the one asked for walking backward
};

}  // namespace tovan
