#pragma once

/// @file
/// The objects behind `HANDLE`.

#include "HandleTable.h"

#include <type_traits>
#include <typeinfo>

namespace Quendra::Platform
{

/// A file or an event.
class KernelObject
{
public:
    KernelObject() = default;
    virtual ~KernelObject() = default;

    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
};

using KernelHandles = HandleTable<KernelObject>;

/// The object of exactly that type behind the handle, or null.
template <typename Type> std::shared_ptr<Type> FindKernelObject(void* handle)
{
    static_assert(std::is_final_v<Type>);
    auto object = KernelHandles::Instance().Find(handle);
    const auto* const found = object.get();
    return found != nullptr && typeid(*found) == typeid(Type) ? std::static_pointer_cast<Type>(std::move(object)) : nullptr;
}

} // namespace Quendra::Platform
