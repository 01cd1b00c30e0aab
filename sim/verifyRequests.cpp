#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "sim/requests.h"
#include "sim/statuses.h"
#include "sim/textTools.h"

namespace sim {
namespace {

enum class Action : std::uint64_t {
    VerifyStart = 1,
    RebuildStart = 2,
    VerifyDetails = 3,
    RebuildDetails = 4,
    RemoveItem = 5,
    SetOptions = 6,
    ReverseNameLookup = 7,
    VersionInformation = 8,
    Pause = 9,
    Resume = 10,
    Cancel = 11,
};

struct RequestForm {
    Action action;
    std::string_view fields;  // in order; "?" behind one that may be absent, "/" an empty element
};

constexpr std::array<RequestForm, 20> kForms = {{
    {Action::VerifyStart, "action poolName uiOptions debugLevel crossValidation/?"},
    {Action::RebuildStart,
     "action poolName rezidThreshold uiOptions debugLevel fileLossMax uiPruneWait/? purge/? "
     "pruneIV/? pruneUnknownLosses/?"},
    {Action::VerifyDetails, "userKey action multiple/?"},
    {Action::VerifyDetails, "poolName action"},
    {Action::VerifyDetails, "fileName userKey action"},
    {Action::VerifyDetails, "action"},
    {Action::RebuildDetails, "userKey action multiple/?"},
    {Action::RebuildDetails, "poolName action"},
    {Action::RebuildDetails, "fileName userKey action"},
    {Action::RebuildDetails, "action"},
    {Action::RemoveItem, "userKey action itemKey itemType"},
    {Action::SetOptions, "userKey action uiPruneStatus"},
    {Action::SetOptions, "userKey action uiOptions"},
    {Action::SetOptions, "userKey action debugLevel"},
    {Action::SetOptions, "action reset/? reconfigure/?"},
    {Action::ReverseNameLookup, "action zid nameSpace nameType volumeID"},
    {Action::VersionInformation, "action"},
    {Action::Pause, "userKey action"},
    {Action::Resume, "userKey action"},
    {Action::Cancel, "userKey action"},
}};

struct Field {
    std::string name;
    std::string text;
    bool empty = false;
};

// Takes the first element, "<name>text</name>" or "<name/>", from the front of `text`.
std::optional<Field> TakeField(std::string_view& text) {
    const auto close = text.find('>');
    if (!text.starts_with('<') || close == std::string_view::npos || close < 2) {
        return std::nullopt;
    }
    if (text[close - 1] == '/') {
        Field field{std::string(text.substr(1, close - 2)), "", true};
        text.remove_prefix(close + 1);
        return field;
    }
    Field field{std::string(text.substr(1, close - 1)), "", false};
    const std::string endTag = "</" + field.name + ">";
    text.remove_prefix(close + 1);
    const auto end = text.find('<');
    if (end == std::string_view::npos || !text.substr(end).starts_with(endTag)) {
        return std::nullopt;
    }
    field.text = text.substr(0, end);
    text.remove_prefix(end + endTag.size());
    return field;
}

std::optional<std::vector<Field>> FieldsOf(std::string_view request) {
    constexpr std::string_view kBegin = "<ostrelRequest><pool><poolVerify>";
    constexpr std::string_view kEnd = "</poolVerify></pool></ostrelRequest>";
    if (!request.starts_with(kBegin) || !request.ends_with(kEnd) ||
        request.size() < kBegin.size() + kEnd.size()) {
        return std::nullopt;
    }
    request = request.substr(kBegin.size(), request.size() - kBegin.size() - kEnd.size());
    std::vector<Field> fields;
    while (!request.empty()) {
        auto field = TakeField(request);
        if (!field) {
            return std::nullopt;
        }
        fields.push_back(std::move(*field));
    }
    return fields;
}

bool IsText(const std::string& name) {
    return name == "poolName" || name == "fileName" || name == "nameSpace" || name == "nameType" ||
           name == "volumeID";
}

bool IsField(const Field& field, const std::string& name, bool empty) {
    const bool content =
        empty || (IsText(name) ? !field.text.empty() : ToNumber(field.text) != std::nullopt);
    return field.name == name && field.empty == empty && content;
}

bool Fits(const std::vector<Field>& fields, std::string_view form) {
    auto field = fields.begin();
    for (std::string name : SplitWords(form)) {
        const bool optional = name.back() == '?';
        name.resize(name.size() - (optional ? 1 : 0));
        const bool empty = name.back() == '/';
        name.resize(name.size() - (empty ? 1 : 0));
        if (field != fields.end() && IsField(*field, name, empty)) {
            ++field;
        } else if (!optional) {
            return false;
        }
    }
    return field == fields.end();
}

std::string Value(const std::string& name, const std::string& value) {
    return "<" + name + " value=\"" + value + "\"/>";
}

std::string Reply(std::uint64_t result, const std::string& content = {}) {
    return FramedReply("pool", "poolVerify", result, content);
}

std::string EntryOf(const Job& job) {
    std::string settings;
    for (const auto& [name, value] : job.settings) {
        settings += Value(name, value);
    }
    return "<entry>" + Value("userKey", std::to_string(job.key)) + "<poolName>" + job.pool +
           "</poolName>" + Value("state", std::to_string(static_cast<int>(job.state))) +
           Value("ravStatus", std::to_string(job.status)) +
           Value("finalStatus", std::to_string(job.finalStatus)) +
           Value("finalStatusSetter", std::to_string(job.finalStatusSetter)) + settings +
           "</entry>";
}

}  // namespace

// A request that fits one of the forms.
class VerifyRequests::Request {
  public:
    Request(Action action, std::vector<Field> fields)
        : action_(action), fields_(std::move(fields)) {}

    static std::optional<Request> Read(std::string_view text);

    Action What() const { return action_; }
    const std::vector<Field>& Fields() const { return fields_; }
    const Field* Find(std::string_view name) const;
    bool Has(std::string_view name) const { return Find(name) != nullptr; }
    std::string Text(std::string_view name) const { return Has(name) ? Find(name)->text : ""; }
    std::uint64_t Number(std::string_view name) const { return ToNumber(Text(name)).value_or(0); }

  private:
    Action action_;
    std::vector<Field> fields_;
};

const Field* VerifyRequests::Request::Find(std::string_view name) const {
    const auto found = std::find_if(fields_.begin(), fields_.end(),
                                    [&](const Field& field) { return field.name == name; });
    return found == fields_.end() ? nullptr : &*found;
}

std::optional<VerifyRequests::Request> VerifyRequests::Request::Read(std::string_view text) {
    auto fields = FieldsOf(text);
    if (!fields) {
        return std::nullopt;
    }
    // The action stands somewhere among the fields, and an action has several forms.
    const Request unknown({}, std::move(*fields));
    const std::uint64_t action = unknown.Number("action");
    for (const RequestForm& form : kForms) {
        if (static_cast<std::uint64_t>(form.action) == action &&
            Fits(unknown.Fields(), form.fields)) {
            return Request(form.action, unknown.Fields());
        }
    }
    return std::nullopt;
}

std::optional<std::string> VerifyRequests::Answer(std::string_view request) {
    const auto read = Request::Read(request);
    return read ? std::optional<std::string>(Serve(*read)) : std::nullopt;
}

std::string VerifyRequests::Serve(const Request& request) {
    switch (request.What()) {
        case Action::VerifyStart:
        case Action::RebuildStart:
            return Start(request);
        case Action::VerifyDetails:
        case Action::RebuildDetails:
            return Details(request);
        case Action::RemoveItem:
            return RemoveItem(request);
        case Action::SetOptions:
            return SetOptions(request);
        case Action::ReverseNameLookup:
            return LookUpName(request);
        case Action::VersionInformation:
            return Reply(0, Value("versionMajor", "2") + Value("versionMinor", "0") +
                                Value("xmlVersionMajor", "1") + Value("xmlVersionMinor", "3"));
        case Action::Pause:
        case Action::Resume:
        case Action::Cancel:
            return ChangeJob(request);
    }
    return Reply(kBadParameter);
}

std::string VerifyRequests::Start(const Request& request) {
    const auto pool = service_.Find(ObjectKind::Pool, request.Text("poolName"));
    if (!pool) {
        return Reply(kNotFound);
    }
    if (pool->state != "maintenance") {
        return Reply(kPoolStateIncompatible);
    }
    Job job;
    job.kind = request.What() == Action::VerifyStart ? JobKind::Verify : JobKind::Rebuild;
    job.pool = pool->name;
    for (const Field& field : request.Fields()) {
        if (field.name != "action" && field.name != "poolName") {
            job.settings[field.name] = field.empty ? "1" : field.text;
        }
    }
    return Reply(0, Value("userKey", std::to_string(jobs_.Start(std::move(job)))));
}

// With a key: that job, and with "multiple" every job of its pool; with a pool's name that pool's
// jobs; with a file name the job whose result file it is; else all jobs of the kind.
std::string VerifyRequests::Details(const Request& request) const {
    const bool verify = request.What() == Action::VerifyDetails;
    const auto keyed = jobs_.Find(request.Number("userKey"));
    const std::string pool =
        request.Has("multiple") && keyed ? keyed->pool : request.Text("poolName");
    std::string entries;
    for (const Job& job : jobs_.All()) {
        const bool kind = (job.kind == JobKind::Verify) == verify;
        const bool file =
            !request.Has("fileName") || request.Text("fileName") == ResultFileName(job);
        const bool key = !request.Has("userKey") || request.Has("multiple") ||
                         request.Number("userKey") == job.key;
        if (kind && file && key && (pool.empty() || pool == job.pool)) {
            entries += EntryOf(job);
        }
    }
    if (entries.empty() || (request.Has("userKey") && !keyed)) {
        return Reply(kNotFound);
    }
    const std::string element = verify ? "verifyDetails" : "rebuildDetails";
    return Reply(0, "<" + element + ">" + entries + "</" + element + ">");
}

// Item 0 stands for the whole job.
std::string VerifyRequests::RemoveItem(const Request& request) {
    if (request.Number("itemKey") != 0) {
        return Reply(kNotFound);
    }
    return Reply(jobs_.Remove(request.Number("userKey")) ? 0 : kNotFound);
}

std::string VerifyRequests::SetOptions(const Request& request) {
    if (!request.Has("userKey")) {
        return Reply(0);
    }
    const Field& setting = request.Fields().back();
    return Reply(jobs_.Set(request.Number("userKey"), setting.name, setting.text) ? 0 : kNotFound);
}

std::string VerifyRequests::LookUpName(const Request& request) const {
    const auto guid = GuidFromText(request.Text("volumeID"));
    if (!guid) {
        return Reply(kBadParameter);
    }
    const auto volume = service_.FindByGuid(ObjectKind::Volume, *guid);
    if (!volume) {
        return Reply(kNotFound);
    }
    return Reply(
        0, "<volume>" + volume->name + "</volume><path>/zid/" + request.Text("zid") + "</path>");
}

std::string VerifyRequests::ChangeJob(const Request& request) {
    constexpr std::uint64_t kUserAborted = 20017;
    const std::uint64_t key = request.Number("userKey");
    if (!jobs_.Find(key)) {
        return Reply(kNotFound);
    }
    const bool changed = request.What() == Action::Pause ? jobs_.Pause(key)
                         : request.What() == Action::Resume
                             ? jobs_.Resume(key)
                             : jobs_.End(key, JobState::Cancelled, kUserAborted, 1);
    return Reply(changed ? 0 : kInvalidState);
}

}  // namespace sim
