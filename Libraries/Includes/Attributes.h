#pragma once

/// @file
/// One file or folder as the server reports it. The order of the operations is part of the contract with callers built by other
/// compilers: nothing may be inserted, and there are no overloads, whose order compilers see differently.

#include "AttributeTime.h"

#include <cstdint>
#include <memory>
#include <string>

/// An item as a file system would describe it.
///
/// A number or time that is not set holds the largest value of its type (`CAttributeTime::kUnset`, `kUnsetSize`,
/// `kUnsetAttributes`), a text is empty. A record is used by one thread at a time. Only memory can fail an operation.
class IAttributes
{
public:
    static constexpr std::int64_t kUnsetSize = 0x7FFFFFFFFFFFFFFF;
    static constexpr std::uint32_t kUnsetAttributes = 0xFFFFFFFF;

    virtual ~IAttributes() = default; // slot 0

    /// Slot 1. A new record with the same fields.
    [[nodiscard]] virtual std::shared_ptr<IAttributes> Clone() const = 0;

    /// Slot 2. Whether all four times are set.
    [[nodiscard]] virtual bool HasTimes() const = 0;
    [[nodiscard]] virtual bool HasSize() const = 0;          // slot 3
    [[nodiscard]] virtual bool HasAttributes() const = 0;    // slot 4
    [[nodiscard]] virtual bool HasExtendedValue() const = 0; // slot 5
    [[nodiscard]] virtual bool HasAlternatePath() const = 0; // slot 6
    [[nodiscard]] virtual bool HasName() const = 0;          // slot 7

    /// Slot 8. Unsets every field.
    virtual void Reset() = 0;

    virtual void SetCreationTime(CAttributeTime time) = 0;    // slot 9
    virtual void SetLastAccessTime(CAttributeTime time) = 0;  // slot 10
    virtual void SetLastWriteTime(CAttributeTime time) = 0;   // slot 11
    virtual void SetChangeTime(CAttributeTime time) = 0;      // slot 12
    virtual void SetSize(std::int64_t size) = 0;              // slot 13: in bytes
    virtual void SetExtendedValue(std::int64_t value) = 0;    // slot 14: for the caller's own use
    virtual void SetAttributes(std::uint32_t attributes) = 0; // slot 15: Windows file-attribute bits

    /// Slot 16. Names the item; trailing "/" are cut, so that "/" alone leaves no name.
    virtual void SetName(const std::wstring& name) = 0;

    /// Slot 17. A second path, for the caller's own use; stored as it is.
    virtual void SetAlternatePath(const std::wstring& path) = 0;

    virtual void SetReadOnly(std::uint32_t flag) = 0;       // slot 18: the user may not write the item; the lowest bit counts
    virtual void SetFolderReadOnly(std::uint32_t flag) = 0; // slot 19: nor inside the folder; the lowest bit counts

    /// Slot 20. Replaces all attribute bits by those of a folder (0x10) or, for 0, of a file (0x80).
    virtual void SetDirectory(std::uint32_t flag) = 0;

    [[nodiscard]] virtual CAttributeTime GetCreationTime() const = 0;   // slot 21
    [[nodiscard]] virtual CAttributeTime GetLastAccessTime() const = 0; // slot 22
    [[nodiscard]] virtual CAttributeTime GetLastWriteTime() const = 0;  // slot 23
    [[nodiscard]] virtual CAttributeTime GetChangeTime() const = 0;     // slot 24
    [[nodiscard]] virtual std::int64_t GetSize() const = 0;             // slot 25

    [[nodiscard]] virtual std::string GetSizeStringA() const = 0;           // slot 26: unsigned decimal, like the next
    [[nodiscard]] virtual std::wstring GetSizeString() const = 0;           // slot 27
    [[nodiscard]] virtual std::int64_t GetExtendedValue() const = 0;        // slot 28
    [[nodiscard]] virtual std::uint32_t GetAttributes() const = 0;          // slot 29
    [[nodiscard]] virtual std::string GetAttributesStringA() const = 0;     // slot 30: unsigned decimal, like the next
    [[nodiscard]] virtual std::wstring GetAttributesString() const = 0;     // slot 31
    [[nodiscard]] virtual const std::wstring& GetName() const = 0;          // slot 32: valid until the name changes
    [[nodiscard]] virtual const std::wstring& GetAlternatePath() const = 0; // slot 33
    [[nodiscard]] virtual bool IsReadOnly() const = 0;                      // slot 34
    [[nodiscard]] virtual bool IsFolderReadOnly() const = 0;                // slot 35

    /// Slot 36. Unsets all four times; returns the time that is none.
    virtual CAttributeTime ClearTimes() = 0;
    virtual void ClearSize() = 0;          // slot 37
    virtual void ClearAttributes() = 0;    // slot 38
    virtual void ClearExtendedValue() = 0; // slot 39
    virtual void ClearAlternatePath() = 0; // slot 40
    virtual void ClearName() = 0;          // slot 41
};

/// An item with the server's own knowledge of it.
class IServerAttributes : public IAttributes
{
public:
    /// Slot 42. The server's revision text, kept as the bytes received (UTF-8).
    virtual void SetRevision(const std::string& revision) = 0;
    [[nodiscard]] virtual std::string GetRevision() const = 0; // slot 43

    /// Slot 44. Whether every field is the same in both records; texts are compared with their case.
    [[nodiscard]] virtual bool IsEqual(const IServerAttributes& other) const = 0;
};

/// The server's part of a record: slots 42 to 44.
class CServerItemAttributesBase : public IServerAttributes
{
public:
    CServerItemAttributesBase() = default;
    /// The revision is taken through the source's `GetRevision`, whatever class overrides it.
    CServerItemAttributesBase(const CServerItemAttributesBase& other);
    CServerItemAttributesBase& operator=(const CServerItemAttributesBase& other);

    void SetRevision(const std::string& revision) override;
    [[nodiscard]] std::string GetRevision() const override;
    [[nodiscard]] bool IsEqual(const IServerAttributes& other) const override;

private:
    std::string m_revision;
};

/// The file system's part of a record: slots 1 to 41. Made with `std::make_shared` and held by shared pointers.
template <typename Base> class CAttributes : public Base, public std::enable_shared_from_this<CAttributes<Base>>
{
public:
    CAttributes() = default;

    [[nodiscard]] std::shared_ptr<IAttributes> Clone() const override;
    [[nodiscard]] bool HasTimes() const override;
    [[nodiscard]] bool HasSize() const override;
    [[nodiscard]] bool HasAttributes() const override;
    [[nodiscard]] bool HasExtendedValue() const override;
    [[nodiscard]] bool HasAlternatePath() const override;
    [[nodiscard]] bool HasName() const override;
    void Reset() override;
    void SetCreationTime(CAttributeTime time) override;
    void SetLastAccessTime(CAttributeTime time) override;
    void SetLastWriteTime(CAttributeTime time) override;
    void SetChangeTime(CAttributeTime time) override;
    void SetSize(std::int64_t size) override;
    void SetExtendedValue(std::int64_t value) override;
    void SetAttributes(std::uint32_t attributes) override;
    void SetName(const std::wstring& name) override;
    void SetAlternatePath(const std::wstring& path) override;
    void SetReadOnly(std::uint32_t flag) override;
    void SetFolderReadOnly(std::uint32_t flag) override;
    void SetDirectory(std::uint32_t flag) override;
    [[nodiscard]] CAttributeTime GetCreationTime() const override;
    [[nodiscard]] CAttributeTime GetLastAccessTime() const override;
    [[nodiscard]] CAttributeTime GetLastWriteTime() const override;
    [[nodiscard]] CAttributeTime GetChangeTime() const override;
    [[nodiscard]] std::int64_t GetSize() const override;
    [[nodiscard]] std::string GetSizeStringA() const override;
    [[nodiscard]] std::wstring GetSizeString() const override;
    [[nodiscard]] std::int64_t GetExtendedValue() const override;
    [[nodiscard]] std::uint32_t GetAttributes() const override;
    [[nodiscard]] std::string GetAttributesStringA() const override;
    [[nodiscard]] std::wstring GetAttributesString() const override;
    [[nodiscard]] const std::wstring& GetName() const override;
    [[nodiscard]] const std::wstring& GetAlternatePath() const override;
    [[nodiscard]] bool IsReadOnly() const override;
    [[nodiscard]] bool IsFolderReadOnly() const override;
    CAttributeTime ClearTimes() override;
    void ClearSize() override;
    void ClearAttributes() override;
    void ClearExtendedValue() override;
    void ClearAlternatePath() override;
    void ClearName() override;

private:
    CAttributeTime m_creationTime;
    CAttributeTime m_lastAccessTime;
    CAttributeTime m_lastWriteTime;
    CAttributeTime m_changeTime;
    std::int64_t m_size = IAttributes::kUnsetSize;
    std::int64_t m_extendedValue = IAttributes::kUnsetSize;
    std::uint32_t m_attributes = IAttributes::kUnsetAttributes;
    std::wstring m_alternatePath;
    std::wstring m_name;
    std::uint32_t m_readOnly : 1 = 0;
    std::uint32_t m_folderReadOnly : 1 = 0;
};

extern template class CAttributes<CServerItemAttributesBase>;

/// The record that this library makes.
using CServerAttributes = CAttributes<CServerItemAttributesBase>;
