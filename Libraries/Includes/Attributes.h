#pragma once

/// @file
/// One file or folder as the server reports it. The order of the virtual functions is part of the binary interface: do not insert any, and
/// do not add overloads, which compilers order differently in the vtable.

#include "AttributeTime.h"

#include <cstdint>
#include <memory>
#include <string>

/// An item as a file system would describe it.
///
/// A number or time that is not set holds the largest value of its type (`CAttributeTime::kUnset`, `kUnsetSize`,
/// `kUnsetAttributes`), a text is empty. A record is used by one thread at a time. Operations fail only if memory runs out.
class IAttributes
{
public:
    static constexpr std::int64_t kUnsetSize = 0x7FFFFFFFFFFFFFFF; ///< no size, or no extended value.
    static constexpr std::uint32_t kUnsetAttributes = 0xFFFFFFFF;  ///< no attribute bits.

    virtual ~IAttributes() = default; // slot 0

    /// Slot 1. @return a new record with the same fields.
    [[nodiscard]] virtual std::shared_ptr<IAttributes> Clone() const = 0;
    /// Slot 2. @return whether all four times are set.
    [[nodiscard]] virtual bool HasTimes() const = 0;
    /// Slot 3. @return whether the size is set.
    [[nodiscard]] virtual bool HasSize() const = 0;
    /// Slot 4. @return whether the attribute bits are set.
    [[nodiscard]] virtual bool HasAttributes() const = 0;
    /// Slot 5. @return whether the extended value is set.
    [[nodiscard]] virtual bool HasExtendedValue() const = 0;
    /// Slot 6. @return whether there is an alternate path.
    [[nodiscard]] virtual bool HasAlternatePath() const = 0;
    /// Slot 7. @return whether there is a name.
    [[nodiscard]] virtual bool HasName() const = 0;

    /// Slot 8. Unsets every field.
    virtual void Reset() = 0;

    /// Slot 9. @param time  when the item was created.
    virtual void SetCreationTime(CAttributeTime time) = 0;
    /// Slot 10. @param time  when the content was last read.
    virtual void SetLastAccessTime(CAttributeTime time) = 0;
    /// Slot 11. @param time  when the content was last written.
    virtual void SetLastWriteTime(CAttributeTime time) = 0;
    /// Slot 12. @param time  when anything of the item last changed.
    virtual void SetChangeTime(CAttributeTime time) = 0;
    /// Slot 13. @param size  in bytes.
    virtual void SetSize(std::int64_t size) = 0;
    /// Slot 14. @param value  for the caller's own use.
    virtual void SetExtendedValue(std::int64_t value) = 0;
    /// Slot 15. @param attributes  Windows file-attribute bits.
    virtual void SetAttributes(std::uint32_t attributes) = 0;
    /// Slot 16. @param name  trailing "/" are cut, so that "/" alone leaves no name.
    virtual void SetName(const std::wstring& name) = 0;
    /// Slot 17. @param path  a second path, for the caller's own use; stored as it is.
    virtual void SetAlternatePath(const std::wstring& path) = 0;
    /// Slot 18. @param flag  whether the user may not write the item; the lowest bit counts.
    virtual void SetReadOnly(std::uint32_t flag) = 0;
    /// Slot 19. @param flag  whether the user may not write inside the folder; the lowest bit counts.
    virtual void SetFolderReadOnly(std::uint32_t flag) = 0;
    /// Slot 20. Replaces all attribute bits. @param flag  0 for a file (bits 0x80), else a folder (0x10).
    virtual void SetDirectory(std::uint32_t flag) = 0;

    /// Slot 21. @return when the item was created.
    [[nodiscard]] virtual CAttributeTime GetCreationTime() const = 0;
    /// Slot 22. @return when the content was last read.
    [[nodiscard]] virtual CAttributeTime GetLastAccessTime() const = 0;
    /// Slot 23. @return when the content was last written.
    [[nodiscard]] virtual CAttributeTime GetLastWriteTime() const = 0;
    /// Slot 24. @return when anything of the item last changed.
    [[nodiscard]] virtual CAttributeTime GetChangeTime() const = 0;
    /// Slot 25. @return the size in bytes.
    [[nodiscard]] virtual std::int64_t GetSize() const = 0;
    /// Slot 26. @return the size in unsigned decimal.
    [[nodiscard]] virtual std::string GetSizeStringA() const = 0;
    /// Slot 27. @return the size in unsigned decimal.
    [[nodiscard]] virtual std::wstring GetSizeString() const = 0;
    /// Slot 28. @return the extended value.
    [[nodiscard]] virtual std::int64_t GetExtendedValue() const = 0;
    /// Slot 29. @return the attribute bits.
    [[nodiscard]] virtual std::uint32_t GetAttributes() const = 0;
    /// Slot 30. @return the attribute bits in unsigned decimal.
    [[nodiscard]] virtual std::string GetAttributesStringA() const = 0;
    /// Slot 31. @return the attribute bits in unsigned decimal.
    [[nodiscard]] virtual std::wstring GetAttributesString() const = 0;
    /// Slot 32. @return the name; valid until it changes.
    [[nodiscard]] virtual const std::wstring& GetName() const = 0;
    /// Slot 33. @return the alternate path; valid until it changes.
    [[nodiscard]] virtual const std::wstring& GetAlternatePath() const = 0;
    /// Slot 34. @return whether the user may not write the item.
    [[nodiscard]] virtual bool IsReadOnly() const = 0;
    /// Slot 35. @return whether the user may not write inside the folder.
    [[nodiscard]] virtual bool IsFolderReadOnly() const = 0;

    /// Slot 36. Unsets all four times. @return an unset time.
    virtual CAttributeTime ClearTimes() = 0;
    virtual void ClearSize() = 0;          ///< Slot 37. Unsets the size.
    virtual void ClearAttributes() = 0;    ///< Slot 38. Unsets the attribute bits.
    virtual void ClearExtendedValue() = 0; ///< Slot 39. Unsets the extended value.
    virtual void ClearAlternatePath() = 0; ///< Slot 40. Empties the alternate path.
    virtual void ClearName() = 0;          ///< Slot 41. Empties the name.
};

/// An item with the data that only the server has.
class IServerAttributes : public IAttributes
{
public:
    /// Slot 42. @param revision  the server's text, kept as the bytes received (UTF-8).
    virtual void SetRevision(const std::string& revision) = 0;
    /// Slot 43. @return the server's revision text; empty for none.
    [[nodiscard]] virtual std::string GetRevision() const = 0;

    /// Slot 44. Compares two records; texts are compared with their case.
    /// @param other  the other record.
    /// @return whether every field is the same in both.
    [[nodiscard]] virtual bool IsEqual(const IServerAttributes& other) const = 0;
};

/// The server's part of a record: slots 42 to 44.
class CServerItemAttributesBase : public IServerAttributes
{
public:
    CServerItemAttributesBase() = default;
    /// @param other  its revision is read through `GetRevision`, which may be overridden.
    CServerItemAttributesBase(const CServerItemAttributesBase& other);
    /// @param other  as of the constructor. @return this record.
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

    /// @cond
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
    /// @endcond

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
