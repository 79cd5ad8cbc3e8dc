#pragma once

/// @file
/// The objects behind `HANDLE`.

#include "HandleTable.h"

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

/// The object of that type behind the handle; null where there is none.
template <class Type> std::shared_ptr<Type> FindKernelObject(void* handle)
{
    return std::dynamic_pointer_cast<Type>(KernelHandles::Instance().Find(handle));
}
