#include "Faults.h"

#include <json/json.h>

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace ApplianceParts
{

namespace
{

using Names = std::initializer_list<const char*>;
using Pieces = std::vector<FaultPiece>;

// An object of a plan. Whatever is wrong with it is thrown with its place.
class PlanObject
{
public:
    // @param known  the names that its members may have.
    PlanObject(const Json::Value& value, std::string place, Names known) : m_value(value), m_place(std::move(place))
    {
        Demand(value.isObject(), "is not an object");
        for (const auto& name : value.getMemberNames())
            Demand(std::ranges::find(known, name) != known.end(), "has an unknown member '" + name + "'");
    }

    void Demand(bool isRight, const std::string& otherwise) const
    {
        if (!isRight)
            throw std::runtime_error(m_place + " " + otherwise);
    }

    [[nodiscard]] bool Has(const char* name) const { return m_value.isMember(name); }
    [[nodiscard]] const Json::Value& operator[](const char* name) const { return m_value[name]; }
    [[nodiscard]] std::string Place(const std::string& member) const { return m_place + ": '" + member + "'"; }

    [[nodiscard]] std::string Text(const char* name) const
    {
        Demand(!Has(name) || m_value[name].isString(), "needs a text as its '" + std::string(name) + "'");
        return m_value.get(name, "").asString();
    }

    [[nodiscard]] std::uint64_t Number(const char* name, std::uint64_t otherwise = Fault::kNever) const
    {
        Demand(!Has(name) || m_value[name].isUInt64(), "needs a whole number as its '" + std::string(name) + "'");
        return Has(name) ? m_value[name].asUInt64() : otherwise;
    }

    [[nodiscard]] std::chrono::milliseconds Milliseconds(const char* name) const
    {
        constexpr std::uint64_t kHour = 3'600'000;
        Demand(Number(name, 0) <= kHour, "waits for longer than an hour");
        return std::chrono::milliseconds(Number(name, 0));
    }

    [[nodiscard]] double Chance() const
    {
        const Json::Value& chance = m_value.get("chance", 1);
        Demand(chance.isNumeric() && chance.asDouble() >= 0 && chance.asDouble() <= 1, "needs a number from 0 to 1 as its 'chance'");
        return chance.asDouble();
    }

    template <typename Choice> [[nodiscard]] Choice OneOf(const char* name, const std::map<std::string, Choice>& choices) const
    {
        const auto found = choices.find(Text(name));
        Demand(found != choices.end(), "has an unknown '" + std::string(name) + "'");
        return found->second;
    }

private:
    const Json::Value& m_value;
    const std::string m_place;
};

std::string BytesOfHex(const PlanObject& piece)
{
    const std::string text = piece.Text("hex");
    const bool isHex = text.size() % 2 == 0 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    piece.Demand(isHex, "needs pairs of hexadecimal digits as its 'hex'");
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); at += 2)
        bytes += static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16));
    return bytes;
}

std::uint64_t LengthOf(const Pieces& pieces)
{
    std::uint64_t length = 0;
    for (const auto& piece : pieces)
        length += piece.bytes.size() * piece.times;
    return length;
}

// A text, {"hex": "00ff"}, {"repeat": PIECES, "times": N}, {"wait": MILLISECONDS} or a list of these.
Pieces ReadPieces(const Json::Value& value, const std::string& place)
{
    constexpr std::uint64_t kLongestRepeated = 1 << 20;
    if (value.isString())
        return {{.bytes = value.asString()}};
    if (value.isArray())
    {
        Pieces all;
        for (Json::ArrayIndex index = 0; index < value.size(); ++index)
            std::ranges::move(ReadPieces(value[index], place + " " + std::to_string(index + 1)), std::back_inserter(all));
        return all;
    }
    const PlanObject piece(value, place, {"hex", "repeat", "times", "wait"});
    const bool isRepeated = piece.Has("repeat") && piece.Has("times");
    piece.Demand(isRepeated ? value.size() == 2 : value.size() == 1 && (piece.Has("hex") || piece.Has("wait")),
                 "needs 'hex', 'wait', or 'repeat' and 'times'");
    if (piece.Has("hex"))
        return {{.bytes = BytesOfHex(piece)}};
    if (piece.Has("wait"))
        return {{.wait = piece.Milliseconds("wait")}};
    piece.Demand(piece.Number("times") >> 30 == 0, "repeats more than 2^30 times");
    const Pieces repeated = ReadPieces(piece["repeat"], piece.Place("repeat"));
    piece.Demand(std::ranges::all_of(repeated, [](const auto& each) { return each.wait.count() == 0; }), "cannot repeat a 'wait'");
    piece.Demand(LengthOf(repeated) <= kLongestRepeated, "repeats more than a mebibyte");
    std::string bytes;
    for (const auto& [wait, part, times] : repeated)
        for (std::uint64_t count = 0; count < times; ++count)
            bytes += part;
    return {{.bytes = bytes, .times = bytes.empty() ? 0 : piece.Number("times")}};
}

// A reply that is given as its status, header lines and body.
Pieces ReadReply(const PlanObject& fault)
{
    Pieces body = fault.Has("body") ? ReadPieces(fault["body"], fault.Place("body")) : Pieces();
    std::string head = "HTTP/1.1 " + std::to_string(fault.Number("status", 200)) + " Status\r\n";
    fault.Demand(!fault.Has("headers") || fault["headers"].isArray(), "needs a list of texts as its 'headers'");
    for (const Json::Value& line : fault["headers"])
    {
        fault.Demand(line.isString(), "needs a list of texts as its 'headers'");
        head += line.asString() + "\r\n";
    }
    head += "Content-Length: " + std::to_string(LengthOf(body)) + "\r\n\r\n";
    body.insert(body.begin(), {.bytes = std::move(head)});
    return body;
}

Fault ReadFault(const Json::Value& value, const std::string& place)
{
    const PlanObject object(value, place,
                            {"name", "method", "path", "chance", "count", "at", "reads", "send", "status", "headers", "body", "cut",
                             "corrupt", "stall", "blocks", "then"});
    Fault fault{.name = object.Text("name"), .method = object.Text("method"), .path = object.Text("path")};
    object.Demand(!fault.name.empty(), "has no 'name'");
    fault.chance = object.Chance();
    fault.count = object.Number("count");
    fault.isAtConnection = object.OneOf<bool>("at", {{"", false}, {"request", false}, {"connection", true}});
    fault.reads = object.Number("reads");
    const bool isComposed = object.Has("status") || object.Has("headers") || object.Has("body");
    object.Demand(!object.Has("send") || !isComposed, "has both 'send' and a 'status', 'headers' or a 'body'");
    if (isComposed)
        fault.reply = ReadReply(object);
    else if (object.Has("send") || fault.isAtConnection)
        fault.reply = ReadPieces(object.Has("send") ? object["send"] : Json::arrayValue, object.Place("send"));

    fault.cut = object.Number("cut");
    fault.corrupt = object.Number("corrupt");
    if (object.Has("stall"))
    {
        const PlanObject stall(object["stall"], object.Place("stall"), {"after", "ms"});
        fault.stallAt = stall.Number("after", 0);
        fault.stall = stall.Milliseconds("ms");
    }
    if (object.Has("blocks"))
    {
        const PlanObject blocks(object["blocks"], object.Place("blocks"), {"bytes", "ms"});
        fault.blockSize = blocks.Number("bytes", 1);
        blocks.Demand(fault.blockSize > 0, "needs at least one of its 'bytes'");
        fault.pause = blocks.Milliseconds("ms");
    }

    // Only a connection whose bytes are all right up to here can be kept.
    const bool isWhole = !fault.isAtConnection && !object.Has("send") && !object.Has("cut") && !object.Has("reads");
    fault.end = object.OneOf<FaultEnd>("then", {{"", isWhole ? FaultEnd::Keep : FaultEnd::Close},
                                                {"keep", FaultEnd::Keep},
                                                {"close", FaultEnd::Close},
                                                {"reset", FaultEnd::Reset},
                                                {"silent", FaultEnd::Silent}});
    object.Demand(fault.end != FaultEnd::Keep || isWhole || (object.Has("send") && !object.Has("cut") && !object.Has("reads")),
                  "cannot keep its connection");
    object.Demand(fault.reply || !object.Has("reads"), "needs a reply of its own, since it does not read the whole request");
    return fault;
}

// A list of statuses, positions or ends stands for a fault each.
std::vector<Json::Value> Expand(const Json::Value& fault)
{
    for (const char* const name : {"status", "cut", "corrupt", "then"})
    {
        if (!fault.isObject() || !fault[name].isArray() || fault[name].empty())
            continue;
        std::vector<Json::Value> all;
        for (const Json::Value& each : fault[name])
        {
            Json::Value one = fault;
            one[name] = each;
            if (fault["name"].isString() && each.isConvertibleTo(Json::stringValue))
                one["name"] = fault["name"].asString() + ", " + (each.isString() ? "" : std::string(name) + " ") + each.asString();
            std::ranges::move(Expand(one), std::back_inserter(all));
        }
        return all;
    }
    return {fault};
}

// Random numbers that are the same on every system.
class Chances
{
public:
    Chances(std::uint64_t seed, bool isConnection, std::uint64_t number)
        : m_sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32), isConnection ? 1U : 0U,
                     static_cast<std::uint32_t>(number)},
          m_random(m_sequence)
    {
    }

    bool Comes(double chance) { return static_cast<double>(m_random() >> 11) * 0x1p-53 < chance; }
    std::size_t Index(std::size_t size) { return static_cast<std::size_t>(m_random() % size); }

private:
    std::seed_seq m_sequence;
    std::mt19937_64 m_random;
};

} // namespace

FaultPlan ReadFaultPlan(const std::string& text)
try
{
    Json::Value root;
    std::string errors;
    std::istringstream stream(text);
    Json::CharReaderBuilder builder;
    builder["rejectDupKeys"] = builder["failIfExtra"] = true;
    if (!Json::parseFromStream(builder, stream, &root, &errors))
    {
        std::string told;
        std::istringstream words(errors); // in lines, each error behind an asterisk
        for (std::string word; words >> word;)
            told += word != "*" ? " " + word : "";
        throw std::runtime_error("the plan is no JSON:" + told);
    }
    const PlanObject plan(root, "the plan", {"chance", "faults"});
    plan.Demand(plan["faults"].isArray() && !plan["faults"].empty(), "needs a list of 'faults'");
    FaultPlan result{.chance = plan.Chance(), .faults = {}};
    for (Json::ArrayIndex index = 0; index < root["faults"].size(); ++index)
    {
        const Json::Value& value = root["faults"][index];
        const bool isNamed = value.isObject() && value["name"].isString();
        const auto place = "fault " + std::to_string(index + 1) + (isNamed ? " '" + value["name"].asString() + "'" : "");
        for (const Json::Value& each : Expand(value))
            result.faults.push_back(std::make_shared<const Fault>(ReadFault(each, place)));
    }
    return result;
}
catch (const Json::Exception& error) // too deep
{
    throw std::runtime_error("the plan is no JSON: " + std::string(error.what()));
}

FaultPlan ReadFaultPlanFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read the plan " + path.string());
    return ReadFaultPlan({std::istreambuf_iterator<char>(file), {}});
}

FaultChooser ChooseFrom(FaultPlan plan, std::uint64_t seed, std::function<void(const std::string& line)> report)
{
    struct State
    {
        std::mutex mutex;
        std::map<bool, std::uint64_t> numbers;              // of the requests, of the connections.
        std::map<const Fault*, std::uint64_t> playedFaults; // how often.
    };
    return [plan = std::move(plan), seed, report = std::move(report),
            state = std::make_shared<State>()](const FaultOccasion& occasion) -> std::shared_ptr<const Fault> {
        const std::lock_guard guard(state->mutex);
        const bool isConnection = occasion.method.empty();
        const auto number = ++state->numbers[isConnection];
        // The requests of a new connection are not known yet. If a fault for requests is drawn for it, it gets none.
        std::vector<std::shared_ptr<const Fault>> candidates;
        std::ranges::copy_if(plan.faults, std::back_inserter(candidates), [&](const auto& fault) {
            return state->playedFaults[fault.get()] < fault->count &&
                   (isConnection || (!fault->isAtConnection && (fault->method.empty() || fault->method == occasion.method) &&
                                     occasion.path.find(fault->path) != std::string_view::npos));
        });
        Chances chances(seed, isConnection, number);
        if (!chances.Comes(plan.chance) || candidates.empty())
            return nullptr;
        const auto& fault = candidates[chances.Index(candidates.size())];
        if (!chances.Comes(fault->chance) || fault->isAtConnection != isConnection)
            return nullptr;
        ++state->playedFaults[fault.get()];
        report((isConnection ? "fault at connection " : "fault at request ") + std::to_string(number) + ": " + fault->name);
        return fault;
    };
}

} // namespace ApplianceParts
