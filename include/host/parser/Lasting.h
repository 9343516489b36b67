#ifndef CORVANE_HOST_PARSER_LASTING_H
#define CORVANE_HOST_PARSER_LASTING_H

// Values that are there as long as anything runs. What a function keeps in a static or thread_local
// variable of its own is destroyed before the objects that programs made earlier, and those may
// still scan from their destructors:
//
//     static const Table &s_table = lasting(makeTable());
//     Cache &cache = PerThread<Cache>::value();

#include <memory>
#include <utility>

namespace Corvane {

// Moves the value to where it is never destroyed. For the initialisation of static variables.
template <class T>
const T &lasting(T value) {
    return *std::make_unique<T>(std::move(value)).release();
}

// A value of T for each thread that asks for one. Two users of one T share it: take a type of one's
// own.
//
// Threads: each has its own value.
template <class T>
class PerThread {
public:
    // The calling thread's value, made where there is none. It is destroyed with the thread's
    // thread_local objects; for those that are destroyed later, and for static objects, it is made
    // once more, and then stays.
    static T &value() {
        T *&kept = place();
        if (kept == nullptr) {
            std::unique_ptr<T> fresh = std::make_unique<T>();
            static thread_local const AtEnd s_atEnd;
            (void)s_atEnd;
            kept = fresh.release();
        }
        return *kept;
    }

private:
    struct AtEnd {
        AtEnd() = default;
        AtEnd(const AtEnd &) = delete;
        AtEnd &operator=(const AtEnd &) = delete;
        ~AtEnd() { const std::unique_ptr<T> last(std::exchange(place(), nullptr)); }
    };

    // A plain pointer, which outlives all that is destroyed.
    static T *&place() {
        static thread_local T *s_kept = nullptr;
        return s_kept;
    }
};

} // namespace Corvane

#endif
