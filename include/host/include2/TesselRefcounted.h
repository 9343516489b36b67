#ifndef CORVANE_HOST_INCLUDE2_TESSELREFCOUNTED_H
#define CORVANE_HOST_INCLUDE2_TESSELREFCOUNTED_H

// The handle scheme of every shared object, in three layers:
//
//     Ref<T> handle  ->  RefCounted<T> wrapper (one per handle)  ->  T object (derived from
//     RefImpl, counted)
//
// A handle is empty when it has no wrapper. A wrapper may hold a null object: such a handle is not
// empty, and its operator-> answers null. Copying a handle makes a new wrapper on the same object.
//
//     Ref<Score> score(new Score);   // the fresh object's count of 1 is this handle's
//     Ref<Score> second = score;     // same object, count 2
//
// Threads: the count is atomic, so handles on one object may live on several threads. One handle is
// for one thread at a time. The thread that drops the last reference destroys the object.

#include <atomic>
#include <memory>

#include "host/parser/Exception.h"
#include "host/parser/Export.h"

namespace Corvane {

// Base of every shared object; may also be inherited virtually.
class CORVANE_PARSER_API RefImpl {
public:
    // The count of a fresh object is 1 and stands for the handle that will adopt it. A copy is a
    // fresh object, and assigning the content of an object leaves the counts of both alone.
    RefImpl() : count_(1) {}
    RefImpl(const RefImpl &) : count_(1) {}
    RefImpl &operator=(const RefImpl &) { return *this; }
    virtual ~RefImpl();

    // For RefCounted only: counts one more user, and one less. releaseReference answers whether
    // that was the last one, in which case the caller must destroy the object.
    void addReference() const { count_.fetch_add(1); }
    bool releaseReference() const { return count_.fetch_sub(1) == 1; }

private:
    mutable std::atomic<unsigned int> count_;
};

// The heap object between a handle and the object; each is owned by exactly one handle.
template <class T>
class CORVANE_PARSER_API RefCounted {
public:
    // addReference = false: takes over one reference that the caller holds; object may be null.
    // addReference = true:  adds a reference; throws code 4 when object is null.
    RefCounted(T *object, bool addReference);
    RefCounted(const RefCounted &) = delete;
    RefCounted &operator=(const RefCounted &) = delete;

    // Releases the reference, and destroys the object with the last one.
    virtual ~RefCounted();

    // Identity: true when both hold the same object, whatever its content.
    virtual bool operator==(const RefCounted<T> &other) const { return object_ == other.object_; }

    // The object held, or null; owned by the wrappers that hold it.
    T *object() const { return object_; }

private:
    T *object_;
};

// Makes target a wrapper of its own on source's object (or null where source is null) and releases
// what target held. A target that is source already is left alone. The old object is released last,
// so that source may live inside it, and a failed allocation leaves target as it was.
template <class T>
void RefCountedImplCopy(RefCounted<T> *&target, const RefCounted<T> *source);

template <class T>
class CORVANE_PARSER_API Ref {
public:
    // An empty handle.
    Ref() : wrapper_(nullptr) {}

    // Takes over a fresh object (or null, which gives a handle that is not empty but holds
    // nothing). The object is destroyed when the handle cannot be made.
    explicit Ref(T *fresh);

    // A second handle on the same object; a copy of an empty handle is empty.
    Ref(const Ref &source) : wrapper_(nullptr) { RefCountedImplCopy(wrapper_, source.wrapper_); }
    Ref(Ref &&source) noexcept : wrapper_(source.wrapper_) { source.wrapper_ = nullptr; }
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the copy primitive sees to that.
    Ref &operator=(const Ref &source) {
        RefCountedImplCopy(wrapper_, static_cast<const RefCounted<T> *>(source.wrapper_));
        return *this;
    }
    Ref &operator=(Ref &&source) noexcept;
    virtual ~Ref();

    // Whether the handle is empty. A handle that holds a null object is not.
    bool isNull() const { return wrapper_ == nullptr; }

    // The object, or null where the wrapper holds none (operator* must not be used then). An empty
    // handle throws code 1, with the operator's name as the message.
    T *operator->() { return held("operator->", __LINE__); }
    T *operator->() const { return held("operator->", __LINE__); }
    T &operator*() { return *held("operator*", __LINE__); }
    T &operator*() const { return *held("operator*", __LINE__); }

protected:
    // Makes this handle, which must be empty, share the object of source. A source whose wrapper
    // holds null throws the code 4 of RefCounted.
    void share(const Ref &source);

private:
    T *held(const char *operation, unsigned int line) const;

    RefCounted<T> *wrapper_;
};

template <class T>
RefCounted<T>::RefCounted(T *object, bool addReference) : object_(object) {
    if (!addReference) {
        return;
    }
    if (object_ == nullptr) {
        throw Exception("RefCounted constructor for RefImpl failed.", Exception::kGeneral, nullptr,
                        0);
    }
    static_cast<const RefImpl *>(object_)->addReference();
}

template <class T>
RefCounted<T>::~RefCounted() {
    if (object_ != nullptr && static_cast<const RefImpl *>(object_)->releaseReference()) {
        delete static_cast<RefImpl *>(object_);
    }
}

template <class T>
void RefCountedImplCopy(RefCounted<T> *&target, const RefCounted<T> *source) {
    if (target == source) {
        return;
    }
    RefCounted<T> *fresh = nullptr;
    if (source != nullptr) {
        T *object = source->object();
        fresh = new RefCounted<T>(object, object != nullptr);
    }
    RefCounted<T> *old = target;
    target = fresh;
    delete old;
}

template <class T>
Ref<T>::Ref(T *fresh) : wrapper_(nullptr) {
    std::unique_ptr<RefImpl> guard(fresh);
    wrapper_ = new RefCounted<T>(fresh, false);
    (void)guard.release();
}

template <class T>
Ref<T> &Ref<T>::operator=(Ref &&source) noexcept {
    if (this != &source) {
        RefCounted<T> *old = wrapper_;
        wrapper_ = source.wrapper_;
        source.wrapper_ = nullptr;
        delete old;
    }
    return *this;
}

template <class T>
Ref<T>::~Ref() {
    delete wrapper_;
    wrapper_ = nullptr;
}

template <class T>
void Ref<T>::share(const Ref &source) {
    if (source.wrapper_ != nullptr) {
        wrapper_ = new RefCounted<T>(source.wrapper_->object(), true);
    }
}

template <class T>
T *Ref<T>::held(const char *operation, unsigned int line) const {
    if (wrapper_ == nullptr) {
        throw Exception(operation, Exception::kEmptyHandle, "TesselRefcounted", line);
    }
    return wrapper_->object();
}

} // namespace Corvane

#endif
