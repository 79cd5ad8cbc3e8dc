#pragma once

#include "QuendraHttp/QuendraHttp.h"

#include <cstdint>

using Api = IQuendraHttpAPI;

/// Owns an instance of the library.
class Instance
{
public:
    explicit Instance(IQuendraHttpAPI* api) : m_api(api) {}
    ~Instance() { m_api->Release(); }

    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    IQuendraHttpAPI* operator->() const { return m_api; }
    [[nodiscard]] IQuendraHttpAPI& Api() const { return *m_api; }

    ResultCode ShakeHands() const
    {
        std::uint32_t mode = 0;
        std::uint32_t value = 0;
        return m_api->Init(mode, value);
    }

private:
    IQuendraHttpAPI* const m_api;
};
