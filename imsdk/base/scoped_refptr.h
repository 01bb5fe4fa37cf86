#pragma once

#include <utility>

namespace base {

// Holds one reference to an object with AddRef/Release (our ref-counted classes and the
// SDK's interfaces alike).
template <class T>
class scoped_refptr {
public:
    scoped_refptr() = default;
    scoped_refptr(T* p) : ptr_(p) {  // NOLINT: implicit like a raw pointer
        if (ptr_) ptr_->AddRef();
    }
    scoped_refptr(const scoped_refptr& other) : scoped_refptr(other.ptr_) {}
    scoped_refptr(scoped_refptr&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
    ~scoped_refptr() {
        if (ptr_) ptr_->Release();
    }
    scoped_refptr& operator=(scoped_refptr other) noexcept {
        std::swap(ptr_, other.ptr_);
        return *this;
    }

    T* get() const { return ptr_; }
    T* operator->() const { return ptr_; }
    T& operator*() const { return *ptr_; }
    explicit operator bool() const { return ptr_ != nullptr; }

    // Takes over a reference the caller already owns (an out-parameter filled by the SDK).
    void adopt(T* p) {
        if (ptr_) ptr_->Release();
        ptr_ = p;
    }

private:
    T* ptr_ = nullptr;
};

}  // namespace base
