#include "Attributes.h"

#include "Platform/Platform.h"

CServerItemAttributesBase::CServerItemAttributesBase(const CServerItemAttributesBase& other)
    : IServerAttributes(other), m_revision(other.GetRevision())
{
}

CServerItemAttributesBase& CServerItemAttributesBase::operator=(const CServerItemAttributesBase& other)
{
    if (this != &other)
        m_revision = other.GetRevision();
    return *this;
}

void CServerItemAttributesBase::SetRevision(const std::string& revision)
{
    m_revision = revision;
}

std::string CServerItemAttributesBase::GetRevision() const
{
    return m_revision;
}

bool CServerItemAttributesBase::IsEqual(const IServerAttributes& other) const
{
    return m_revision == other.GetRevision() && GetCreationTime() == other.GetCreationTime() &&
           GetLastAccessTime() == other.GetLastAccessTime() && GetLastWriteTime() == other.GetLastWriteTime() &&
           GetChangeTime() == other.GetChangeTime() && GetSize() == other.GetSize() && GetExtendedValue() == other.GetExtendedValue() &&
           GetAttributes() == other.GetAttributes() && GetName() == other.GetName() && GetAlternatePath() == other.GetAlternatePath() &&
           IsReadOnly() == other.IsReadOnly() && IsFolderReadOnly() == other.IsFolderReadOnly();
}

template <typename Base> std::shared_ptr<IAttributes> CAttributes<Base>::Clone() const
{
    return std::make_shared<CAttributes>(*this);
}

template <typename Base> bool CAttributes<Base>::HasTimes() const
{
    return m_creationTime.IsSet() && m_lastAccessTime.IsSet() && m_lastWriteTime.IsSet() && m_changeTime.IsSet();
}

template <typename Base> bool CAttributes<Base>::HasSize() const
{
    return m_size != IAttributes::kUnsetSize;
}

template <typename Base> bool CAttributes<Base>::HasAttributes() const
{
    return m_attributes != IAttributes::kUnsetAttributes;
}

template <typename Base> bool CAttributes<Base>::HasExtendedValue() const
{
    return m_extendedValue != IAttributes::kUnsetSize;
}

template <typename Base> bool CAttributes<Base>::HasAlternatePath() const
{
    return !m_alternatePath.empty();
}

template <typename Base> bool CAttributes<Base>::HasName() const
{
    return !m_name.empty();
}

template <typename Base> void CAttributes<Base>::Reset()
{
    *this = CAttributes();
}

template <typename Base> void CAttributes<Base>::SetCreationTime(CAttributeTime time)
{
    m_creationTime = time;
}

template <typename Base> void CAttributes<Base>::SetLastAccessTime(CAttributeTime time)
{
    m_lastAccessTime = time;
}

template <typename Base> void CAttributes<Base>::SetLastWriteTime(CAttributeTime time)
{
    m_lastWriteTime = time;
}

template <typename Base> void CAttributes<Base>::SetChangeTime(CAttributeTime time)
{
    m_changeTime = time;
}

template <typename Base> void CAttributes<Base>::SetSize(std::int64_t size)
{
    m_size = size;
}

template <typename Base> void CAttributes<Base>::SetExtendedValue(std::int64_t value)
{
    m_extendedValue = value;
}

template <typename Base> void CAttributes<Base>::SetAttributes(std::uint32_t attributes)
{
    m_attributes = attributes;
}

template <typename Base> void CAttributes<Base>::SetName(const std::wstring& name)
{
    m_name.assign(name, 0, name.find_last_not_of(L'/') + 1);
}

template <typename Base> void CAttributes<Base>::SetAlternatePath(const std::wstring& path)
{
    m_alternatePath = path;
}

template <typename Base> void CAttributes<Base>::SetReadOnly(std::uint32_t flag)
{
    m_readOnly = flag & 1U;
}

template <typename Base> void CAttributes<Base>::SetFolderReadOnly(std::uint32_t flag)
{
    m_folderReadOnly = flag & 1U;
}

template <typename Base> void CAttributes<Base>::SetDirectory(std::uint32_t flag)
{
    this->SetAttributes(flag != 0 ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL);
}

template <typename Base> CAttributeTime CAttributes<Base>::GetCreationTime() const
{
    return m_creationTime;
}

template <typename Base> CAttributeTime CAttributes<Base>::GetLastAccessTime() const
{
    return m_lastAccessTime;
}

template <typename Base> CAttributeTime CAttributes<Base>::GetLastWriteTime() const
{
    return m_lastWriteTime;
}

template <typename Base> CAttributeTime CAttributes<Base>::GetChangeTime() const
{
    return m_changeTime;
}

template <typename Base> std::int64_t CAttributes<Base>::GetSize() const
{
    return m_size;
}

// The text is unsigned although the size is signed; this is part of the interface.
template <typename Base> std::string CAttributes<Base>::GetSizeStringA() const
{
    return std::to_string(static_cast<std::uint64_t>(m_size));
}

template <typename Base> std::wstring CAttributes<Base>::GetSizeString() const
{
    return std::to_wstring(static_cast<std::uint64_t>(m_size));
}

template <typename Base> std::int64_t CAttributes<Base>::GetExtendedValue() const
{
    return m_extendedValue;
}

template <typename Base> std::uint32_t CAttributes<Base>::GetAttributes() const
{
    return m_attributes;
}

template <typename Base> std::string CAttributes<Base>::GetAttributesStringA() const
{
    return std::to_string(m_attributes);
}

template <typename Base> std::wstring CAttributes<Base>::GetAttributesString() const
{
    return std::to_wstring(m_attributes);
}

template <typename Base> const std::wstring& CAttributes<Base>::GetName() const
{
    return m_name;
}

template <typename Base> const std::wstring& CAttributes<Base>::GetAlternatePath() const
{
    return m_alternatePath;
}

template <typename Base> bool CAttributes<Base>::IsReadOnly() const
{
    return m_readOnly != 0;
}

template <typename Base> bool CAttributes<Base>::IsFolderReadOnly() const
{
    return m_folderReadOnly != 0;
}

template <typename Base> CAttributeTime CAttributes<Base>::ClearTimes()
{
    m_creationTime = m_lastAccessTime = m_lastWriteTime = m_changeTime = CAttributeTime();
    return m_creationTime;
}

template <typename Base> void CAttributes<Base>::ClearSize()
{
    m_size = IAttributes::kUnsetSize;
}

template <typename Base> void CAttributes<Base>::ClearAttributes()
{
    m_attributes = IAttributes::kUnsetAttributes;
}

template <typename Base> void CAttributes<Base>::ClearExtendedValue()
{
    m_extendedValue = IAttributes::kUnsetSize;
}

template <typename Base> void CAttributes<Base>::ClearAlternatePath()
{
    m_alternatePath.clear();
}

template <typename Base> void CAttributes<Base>::ClearName()
{
    m_name.clear();
}

template class CAttributes<CServerItemAttributesBase>;
