#include "tools/RouterLog/report/LineTexts.h"

#include <set>

namespace routerlog {

namespace {

constexpr std::size_t LongestQuote = 200;

} // namespace

LineTexts TextsOf(const std::vector<Where>& wanted, const std::vector<std::filesystem::path>& files,
                  const OpenFile& open)
{
    std::set<std::pair<std::uint32_t, std::uint64_t>> places;
    for (const Where& where : wanted) {
        places.emplace(where.file, where.line);
    }
    LineTexts texts;
    for (std::uint32_t file = 0; file < files.size(); ++file) {
        auto next = places.lower_bound({file, 0});
        const std::unique_ptr<IByteSource> source =
            next != places.end() && next->first == file ? open(files[file]) : nullptr;
        if (!source) {
            continue;
        }
        LineReader reader(*source);
        for (auto line = reader.Next(); line && next != places.end() && next->first == file; line = reader.Next())
        {
            if (line->number == next->second) {
                texts.emplace(*next, std::string(line->text.substr(0, LongestQuote)));
                ++next;
            }
        }
    }
    return texts;
}

} // namespace routerlog
