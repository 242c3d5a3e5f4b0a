#pragma once

// RAII owners for the Windows handles the backend opens: each is closed on every path.
// Included only by the win32 backend.
#include <windows.h>
#include <bcrypt.h>

#include <utility>

namespace velk::updater::platform::win32 {

// Owns one handle of the kind Traits describes (its type, validity and close call).
template <typename Traits>
class Unique {
public:
    using Type = typename Traits::Type;

    Unique() = default;
    explicit Unique(Type value) : value_(value) {}
    ~Unique() { reset(); }
    Unique(Unique&& other) noexcept : value_(std::exchange(other.value_, Type{})) {}
    Unique& operator=(Unique&& other) noexcept {
        if (this != &other) {
            reset();
            value_ = std::exchange(other.value_, Type{});
        }
        return *this;
    }
    Unique(const Unique&) = delete;
    Unique& operator=(const Unique&) = delete;

    Type get() const { return value_; }
    explicit operator bool() const { return Traits::valid(value_); }
    // For functions that hand a new handle out through a pointer.
    Type* put() {
        reset();
        return &value_;
    }
    // Gives the handle up without closing it.
    Type release() { return std::exchange(value_, Type{}); }
    void reset() {
        if (Traits::valid(value_)) Traits::close(value_);
        value_ = Type{};
    }

private:
    Type value_{};
};

struct KernelHandleTraits {
    using Type = HANDLE;
    static bool valid(HANDLE value) { return value != nullptr && value != INVALID_HANDLE_VALUE; }
    static void close(HANDLE value) { CloseHandle(value); }
};
using UniqueHandle = Unique<KernelHandleTraits>;

struct ServiceHandleTraits {
    using Type = SC_HANDLE;
    static bool valid(SC_HANDLE value) { return value != nullptr; }
    static void close(SC_HANDLE value) { CloseServiceHandle(value); }
};
using ServiceHandle = Unique<ServiceHandleTraits>;

struct EventSourceTraits {
    using Type = HANDLE;
    static bool valid(HANDLE value) { return value != nullptr; }
    static void close(HANDLE value) { DeregisterEventSource(value); }
};
using EventSource = Unique<EventSourceTraits>;

struct CngAlgorithmTraits {
    using Type = BCRYPT_ALG_HANDLE;
    static bool valid(BCRYPT_ALG_HANDLE value) { return value != nullptr; }
    static void close(BCRYPT_ALG_HANDLE value) { BCryptCloseAlgorithmProvider(value, 0); }
};
using CngAlgorithm = Unique<CngAlgorithmTraits>;

struct CngKeyTraits {
    using Type = BCRYPT_KEY_HANDLE;
    static bool valid(BCRYPT_KEY_HANDLE value) { return value != nullptr; }
    static void close(BCRYPT_KEY_HANDLE value) { BCryptDestroyKey(value); }
};
using CngKey = Unique<CngKeyTraits>;

struct CngHashTraits {
    using Type = BCRYPT_HASH_HANDLE;
    static bool valid(BCRYPT_HASH_HANDLE value) { return value != nullptr; }
    static void close(BCRYPT_HASH_HANDLE value) { BCryptDestroyHash(value); }
};
using CngHash = Unique<CngHashTraits>;

// Memory the system allocated for the caller (CRYPT_DECODE_ALLOC_FLAG,
// FORMAT_MESSAGE_ALLOCATE_BUFFER), released with LocalFree.
template <typename T>
struct LocalMemoryTraits {
    using Type = T*;
    static bool valid(T* value) { return value != nullptr; }
    static void close(T* value) { LocalFree(value); }
};
template <typename T>
using LocalMemory = Unique<LocalMemoryTraits<T>>;

// A COM interface pointer, released once.
template <typename T>
struct ComTraits {
    using Type = T*;
    static bool valid(T* value) { return value != nullptr; }
    static void close(T* value) { value->Release(); }
};
template <typename T>
using ComPtr = Unique<ComTraits<T>>;

// COM initialised on this thread for the object's lifetime.
class ComApartment {
public:
    ComApartment() : initialized_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
    ~ComApartment() {
        if (initialized_) CoUninitialize();
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    explicit operator bool() const { return initialized_; }

private:
    bool initialized_;
};

// A VARIANT cleared (its string or interface released) when it goes out of scope.
class Variant {
public:
    Variant() { VariantInit(&value_); }
    ~Variant() { VariantClear(&value_); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    VARIANT& get() { return value_; }

private:
    VARIANT value_;
};

}  // namespace velk::updater::platform::win32
