#include "tools/RouterLog/log/LogFiles.h"

#include "tools/RouterLog/log/LogTime.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <tuple>
#include <utility>

namespace routerlog {

namespace {

namespace fs = std::filesystem;

constexpr int LinesToLookAt = 200;

struct Candidate
{
    fs::path path;
    bool skippedLog = false;
    std::optional<LogTime> first{};
    std::string group{}; // the log's name without ".bak", in lower case
    bool backup = false;
};

std::string LowerCase(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool IsLogName(const fs::path& path)
{
    const std::string name = LowerCase(NameOf(path.filename()));
    return name.ends_with(".log") || name.ends_with(".log.bak");
}

bool Collect(const fs::path& given, std::vector<fs::path>& found)
{
    std::error_code error;
    if (!fs::is_directory(given, error)) {
        found.push_back(given);
        return true;
    }
    const std::size_t before = found.size();
    for (const fs::directory_entry& entry : fs::directory_iterator(given, error)) {
        if (entry.is_regular_file(error) && IsLogName(entry.path())) {
            found.push_back(entry.path());
        }
    }
    return found.size() > before;
}

Candidate LookAt(const fs::path& path, IByteSource& source)
{
    Candidate candidate{.path = path};
    candidate.group = LowerCase(NameOf(path));
    candidate.backup = candidate.group.ends_with(".bak");
    if (candidate.backup) {
        candidate.group.resize(candidate.group.size() - 4);
    }
    LineReader reader(source);
    for (int i = 0; i < LinesToLookAt && !candidate.first; ++i) {
        const auto line = reader.Next();
        if (!line) {
            break;
        }
        candidate.first = ParseStamp(line->text);
        if (!candidate.first && line->text.size() > 19 && line->text.front() == '[') {
            candidate.first = ParseSkippedStamp(line->text.substr(1, 17));
            candidate.skippedLog = candidate.first.has_value();
        }
    }
    return candidate;
}

} // namespace

std::string NameOf(const fs::path& path)
{
    const std::u8string name = path.u8string();
    return {name.begin(), name.end()};
}

LogFiles InOrderOfWriting(const std::vector<fs::path>& given, const OpenFile& open)
{
    LogFiles result;
    std::vector<fs::path> paths;
    for (const fs::path& each : given) {
        if (!Collect(each, paths)) {
            result.fault = "there is no log in the folder " + NameOf(each);
            return result;
        }
    }
    std::vector<Candidate> candidates;
    for (const fs::path& path : paths) {
        const std::unique_ptr<IByteSource> source = open(path);
        if (!source) {
            result.fault = "cannot read " + NameOf(path);
            return result;
        }
        candidates.push_back(LookAt(path, *source));
    }
    // A group's time is its backup's: the clock may have been set between the two.
    const auto groupTime = [&](const Candidate& candidate) {
        const auto backup = std::ranges::find_if(candidates, [&](const Candidate& each) {
            return each.group == candidate.group && each.backup && each.first;
        });
        return backup != candidates.end() ? *backup->first : candidate.first.value_or(0);
    };
    std::vector<std::pair<std::tuple<bool, LogTime, std::string, bool>, fs::path>> keyed;
    keyed.reserve(candidates.size());
    for (const Candidate& each : candidates) {
        keyed.push_back({{each.skippedLog, groupTime(each), each.group, !each.backup}, each.path});
    }
    std::ranges::stable_sort(keyed, {}, [](const auto& each) { return each.first; });
    for (const auto& [key, path] : keyed) {
        result.files.push_back(path);
    }
    return result;
}

} // namespace routerlog
