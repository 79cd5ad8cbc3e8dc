#include "Replies/JsonLibrary.h"

#include "TextConversion.h"
#include "Wiping.h"

#include <algorithm>

#if defined(_MSC_VER)
#pragma warning(disable : 4996)
#elif defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

namespace
{

constexpr std::size_t kEscapeLength = 6; // \uXXXX

bool IsHexDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') || (character >= 'A' && character <= 'F');
}

enum class Surrogate
{
    None,
    High,
    Low
};

// Classifies the escape that the text begins with.
Surrogate EscapedSurrogate(std::string_view text)
{
    if (text.size() < kEscapeLength || !text.starts_with("\\u") || (text[2] != 'd' && text[2] != 'D') ||
        !std::all_of(text.begin() + 3, text.begin() + kEscapeLength, IsHexDigit))
        return Surrogate::None;
    switch (text[3])
    {
    case '8':
    case '9':
    case 'a':
    case 'A':
    case 'b':
    case 'B':
        return Surrogate::High;
    default:
        return text[3] >= '0' && text[3] <= '7' ? Surrogate::None : Surrogate::Low;
    }
}

// The position of the first escape of a surrogate without its other half, searching from a position that is not inside an escape.
std::size_t FindUnpairedSurrogate(std::string_view text, std::size_t from)
{
    for (std::size_t at = text.find('\\', from); at < text.size(); at = text.find('\\', at))
    {
        const Surrogate surrogate = EscapedSurrogate(text.substr(at));
        if (surrogate == Surrogate::None)
            at += 2;
        else if (surrogate == Surrogate::High && EscapedSurrogate(text.substr(at + kEscapeLength)) == Surrogate::Low)
            at += 2 * kEscapeLength;
        else
            return at;
    }
    return std::string_view::npos;
}

// For an unpaired surrogate the reader rejects the whole reply or combines it with the next escape. Copies the text only if it has one.
std::optional<std::string> ReplaceUnpairedSurrogates(std::string_view text)
{
    std::size_t at = FindUnpairedSurrogate(text, 0);
    if (at == std::string_view::npos)
        return std::nullopt;
    std::string replaced(text);
    for (; at != std::string::npos; at = FindUnpairedSurrogate(replaced, at + kEscapeLength))
        replaced.replace(at, kEscapeLength, "\\ufffd"); // of the same length: nothing moves
    return replaced;
}

std::size_t QuotedBytes(std::string_view text)
{
    constexpr std::size_t kEscaped = kEscapeLength;
    std::size_t bytes = 2;
    for (const char character : text)
        bytes += character < ' ' || character > '~' || character == '"' || character == '\\' ? kEscaped : 1;
    return bytes;
}

// Removes the parts of a value that would exceed the size limit when rendered. Counts at least the bytes that the writer writes: one
// indented line for each value, and one more for the end of an array or object.
class Cutter
{
public:
    explicit Cutter(std::size_t room) : m_room(room) {}

    [[nodiscard]] bool IsCut() const noexcept { return m_isCut; }

    // Returns false if the value itself does not fit. An array or object may be cut short.
    bool Fits(Json::Value& value, std::size_t nameBytes = 0, std::size_t depth = 0)
    {
        const std::size_t line = 3 * depth + 4;
        if (!Take(line + nameBytes + BytesOf(value, line) + CommentBytes(value, line)))
            return false;
        if (value.isArray())
        {
            for (Json::ArrayIndex i = 0; i < value.size(); ++i)
                if (!Fits(value[i], 0, depth + 1))
                    value.resize(i);
        }
        else if (value.isObject())
        {
            for (const std::string& name : value.getMemberNames())
                if (!Fits(value[name], QuotedBytes(name), depth + 1))
                    value.removeMember(name);
        }
        return true;
    }

private:
    static std::size_t BytesOf(const Json::Value& value, std::size_t line)
    {
        const std::optional<std::string_view> text = StringIn(value);
        if (text)
            return QuotedBytes(*text);
        return value.isArray() || value.isObject() ? line : std::max(value.asString().size(), std::string_view("null").size());
    }

    static std::size_t CommentBytes(const Json::Value& value, std::size_t line)
    {
        std::size_t bytes = 0;
        for (int placement = Json::commentBefore; placement < Json::numberOfCommentPlacement; ++placement)
        {
            const std::string text = value.getComment(static_cast<Json::CommentPlacement>(placement));
            bytes += text.empty() ? 0 : text.size() + line * (2 + static_cast<std::size_t>(std::ranges::count(text, '/')));
        }
        return bytes;
    }

    // After the first part that does not fit, nothing more fits.
    bool Take(std::size_t bytes)
    {
        m_isCut = m_isCut || bytes > m_room;
        m_room -= m_isCut ? 0 : bytes;
        return !m_isCut;
    }

    std::size_t m_room;
    bool m_isCut = false;
};

} // namespace

bool ReadJson(std::string_view text, Comments comments, Json::Value& root)
{
    return Json::Reader().parse(text.data(), text.data() + text.size(), root, comments == Comments::Collect);
}

bool ParseJson(const ResponseBuffer& response, Comments comments, Json::Value& root)
{
    if (response.data == nullptr)
        return false;
    const std::string_view text(response.data, static_cast<std::size_t>(response.length));
    std::optional<std::string> replaced = ReplaceUnpairedSurrogates(text);
    if (!replaced)
        return ReadJson(text, comments, root);
    const ScopedWipe wipe(*replaced); // the reply may be a login's
    return ReadJson(*replaced, comments, root);
}

std::string RenderJson(Json::Value& value, std::size_t room, bool& isCut)
{
    Cutter cutter(room);
    const bool fits = cutter.Fits(value);
    isCut = cutter.IsCut();
    return fits ? Json::StyledWriter().write(value) : std::string();
}

const Json::Value* FindMember(const Json::Value& object, std::string_view key)
{
    return object.find(key.data(), key.data() + key.size());
}

bool MayHaveMembers(const Json::Value& value, const FunctionTraceScope& trace)
{
    if (value.isObject() || value.isNull())
        return true;
    static const std::string text = [] {
        try
        {
            static_cast<void>(FindMember(Json::Value(false), ""));
        }
        catch (const Json::Exception& error)
        {
            return std::string(error.what());
        }
        return std::string();
    }();
    TraceJsonError(trace, text.c_str());
    return false;
}

void TraceJsonError(const FunctionTraceScope& trace, const char* text)
{
    trace.Error("JSON library has thrown a runtime_error exception (%s)!", text);
}

std::string ToText(const Json::Value* member)
{
    return member != nullptr ? member->asString() : std::string();
}

std::wstring ToWide(const Json::Value* member)
{
    if (member == nullptr)
        return {};
    const std::optional<std::string_view> text = StringIn(*member);
    return text ? ToWide(*text) : ToWide(member->asString());
}

std::optional<std::string_view> StringIn(const Json::Value& value)
{
    const char* begin = nullptr;
    const char* end = nullptr;
    if (!value.isString() || !value.getString(&begin, &end))
        return std::nullopt;
    return std::string_view(begin, static_cast<std::size_t>(end - begin));
}
