// Intrusive counted references: the objects count themselves and delete themselves at 0.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace zd {

// Base of counted objects; starts at no reference.
class CCounted {
public:
    CCounted() = default;
    CCounted(const CCounted&) = delete;
    CCounted& operator=(const CCounted&) = delete;

    void AddReference() noexcept { m_references.fetch_add(1, std::memory_order_relaxed); }
    void RemoveReference() noexcept {
        if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

protected:
    virtual ~CCounted() = default;

private:
    std::atomic<std::int32_t> m_references{0};
};

// One reference to a counted object, or none.
template <class T>
class CRef {
public:
    CRef() noexcept = default;
    explicit CRef(T* object) noexcept : m_object(object) {
        if (m_object != nullptr) m_object->AddReference();
    }
    CRef(const CRef& other) noexcept : CRef(other.m_object) {}
    CRef(CRef&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    CRef& operator=(CRef other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~CRef() {
        if (m_object != nullptr) m_object->RemoveReference();
    }

    T* Get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

}  // namespace zd
