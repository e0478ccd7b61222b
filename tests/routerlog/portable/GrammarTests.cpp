// The table of trace formats: whole, and found again in each line that is written with it.
#include "tools/RouterLog/log/LineGrammar.h"

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

using namespace routerlog;

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The string literals of C++ source from `at` on, up to the parenthesis that closes the one before it; adjacent
/// ones are one. `at` is after the call's opening parenthesis.
std::vector<std::string> LiteralsOfCall(const std::string& source, std::size_t& at)
{
    std::vector<std::string> literals;
    bool adjacent = false;
    for (int depth = 1; depth > 0 && at < source.size(); ++at) {
        const char c = source[at];
        if (c == '"') {
            std::string literal;
            for (++at; source[at] != '"'; ++at) {
                if (source[at] == '\\') {
                    ++at;
                    literal += source[at] == 'n' ? '\n' : source[at] == 'r' ? '\r' : source[at];
                } else {
                    literal += source[at];
                }
            }
            if (adjacent) {
                literals.back() += literal;
            } else {
                literals.push_back(literal);
            }
            adjacent = true;
        } else if (c == '\'') {
            at = source.find('\'', source[at + 1] == '\\' ? at + 3 : at + 2);
        } else if (c == '/' && source[at + 1] == '/') {
            at = source.find('\n', at);
        } else if (!std::isspace(static_cast<unsigned char>(c))) {
            adjacent = false;
            depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        }
    }
    return literals;
}

/// The identifier before the parenthesis at `at`.
std::string NameBefore(const std::string& source, std::size_t at)
{
    std::size_t begin = at;
    while (begin > 0 && (std::isalnum(static_cast<unsigned char>(source[begin - 1])) || source[begin - 1] == '_'))
    {
        --begin;
    }
    return source.substr(begin, at - begin);
}

/// Whether a call of that name puts its first literal into a log.
bool IsTracingCall(const std::string& name)
{
    static const std::set<std::string> names{"Trace", "TraceName", "Report",   "RunReader", "Recreate",
                                             "Write", "AddTrace",  "snprintf", "fprintf"};
    return names.contains(name);
}

/// Whether a text begins as most lines do, with "Class::Method()".
bool NamesAClass(const std::string& text)
{
    const std::size_t end = text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
    return end != std::string::npos && end > 8 && text[end] == ':' && text.find("()") != std::string::npos;
}

/// Whether a literal of such a call is no line's format: what other calls of those names put together.
bool IsSomethingElse(const std::string& literal)
{
    static const std::set<std::string> others{
        "",
        "%s",
        "[%02d-%02d-%02d %02d:%02d:%02d:%04d] ",
        "PREPARE_DOWNLOAD %d",
        "\\x%02X",
        "D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;%s)",
    };
    return others.contains(literal);
}

std::string WithoutLineEnd(std::string text)
{
    while (text.ends_with('\n') || text.ends_with('\r')) {
        text.pop_back();
    }
    return text;
}

/// The formats that stand in a table: the command thread's, by the way to the instrument.
void AddFormatsOfTables(std::map<std::string, std::string>& formats)
{
    const fs::path table = fs::path(MORVANE_SOURCES) / "transport" / "CommandTexts.cpp";
    const std::string source = ReadFile(table);
    for (std::size_t at = source.find('{'); at < source.size();) {
        for (const std::string& literal : LiteralsOfCall(source, at)) {
            formats[literal] = table.string();
        }
    }
}

/// Every format that the product's sources hold, with the file that holds it.
std::map<std::string, std::string> FormatsOfTheSources()
{
    static const std::set<std::string> notTheProduct{"tools",      "tests",     "bench",   "build",      "docs",
                                                     "cmake",      "demo",      "soak",    "console",    "client",
                                                     "instrument", "installer", "samples", "simulation", ".git"};
    std::map<std::string, std::string> formats;
    for (const fs::directory_entry& room : fs::directory_iterator(MORVANE_SOURCES)) {
        if (!room.is_directory() || notTheProduct.contains(room.path().filename().string())) {
            continue;
        }
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(room.path())) {
            if (entry.path().extension() != ".cpp") {
                continue;
            }
            const std::string source = ReadFile(entry.path());
            for (std::size_t at = 0; (at = source.find("\"********", at)) != std::string::npos; ++at) {
                std::string banner = source.substr(at + 1, source.find('"', at + 1) - at - 1);
                banner.resize(std::min(banner.find("\\r\\n"), banner.size()));
                formats[banner] = entry.path().string();
            }
            for (std::size_t at = source.find('('); at != std::string::npos; at = source.find('(', at)) {
                const std::string call = NameBefore(source, at++);
                std::size_t end = at;
                const std::vector<std::string> literals = LiteralsOfCall(source, end);
                for (std::size_t i = 0; i < literals.size(); ++i) {
                    // After a format come values; a text that names a class is a line in whatever call it stands.
                    std::string format = WithoutLineEnd(literals[i]);
                    if (call == "AddTrace" && format.ends_with("error ")) {
                        format += "%d"; // put together with "+"
                    }
                    if (!IsSomethingElse(format) && ((i == 0 && IsTracingCall(call)) || NamesAClass(format))) {
                        formats[format] = entry.path().string();
                    }
                }
            }
        }
    }
    AddFormatsOfTables(formats);
    return formats;
}

std::set<std::string> FormatsOfTheTable()
{
    std::set<std::string> formats;
    for (const TraceFormat& each : TraceFormats()) {
        formats.emplace(each.format);
    }
    return formats;
}

/// A line of the format, with values of the test's own.
std::string Written(std::string_view format, std::string_view text)
{
    std::string line;
    while (!format.empty()) {
        const std::size_t length = std::min(format.find('%'), format.size());
        line += format.substr(0, length);
        format.remove_prefix(length);
        if (!format.empty()) {
            const std::size_t end = format.find_first_of("dsXu");
            line += format[end] == 's' ? std::string(text) : format[end] == 'X' ? "3F" : "07";
            format.remove_prefix(end + 1);
        }
    }
    return line;
}

TEST(TraceFormatTable, HoldsEveryFormatOfTheSources)
{
    const std::map<std::string, std::string> sources = FormatsOfTheSources();
    EXPECT_GE(sources.size(), 85U) << "the collecting finds too little";
    const std::set<std::string> table = FormatsOfTheTable();
    for (const auto& [format, file] : sources) {
        EXPECT_TRUE(table.contains(format)) << file << ": the table lacks \"" << format << '"';
    }
}

TEST(TraceFormatTable, HoldsNothingThatTheSourcesLack)
{
    const std::map<std::string, std::string> sources = FormatsOfTheSources();
    for (const std::string& format : FormatsOfTheTable()) {
        EXPECT_TRUE(sources.contains(format)) << "no source writes \"" << format << '"';
    }
}

TEST(LineGrammar, FindsEachFormatAgainInItsOwnLine)
{
    const LineGrammar grammar;
    for (const TraceFormat& each : TraceFormats()) {
        for (const std::string_view text : {"x", "\\\\.\\pipe\\Reader (2) Pipe connected) [07]", ""}) {
            const std::string line = Written(each.format, text);
            const LineMatch match = grammar.Match(line);
            ASSERT_TRUE(match) << line;
            EXPECT_EQ(match.format->format, each.format) << line;
        }
    }
}

TEST(LineGrammar, TakesTheValuesInTheirOrder)
{
    const LineMatch match = LineGrammar().Match(
        "CCDevicePortPipe::PipeProcessThread(\\\\.\\pipe\\a) b) Write permission denied, 12 To-Device packets, -3 "
        "From-Device packets");
    ASSERT_TRUE(match);
    EXPECT_EQ(match.format->form, Form::PipeWriteDenied);
    EXPECT_EQ(match.Text(0), "\\\\.\\pipe\\a) b");
    EXPECT_EQ(match.Number(1), 12);
    EXPECT_EQ(match.Number(2), -3);
}

TEST(LineGrammar, RefusesALineThatIsCutShortOrLonger)
{
    const LineGrammar grammar;
    for (const TraceFormat& each : TraceFormats()) {
        if (const std::size_t last = each.format.rfind('%');
            last != std::string_view::npos && each.format.find_first_of("dsXu", last) + 1 == each.format.size())
        {
            continue; // their values may have any length
        }
        const std::string line = Written(each.format, "x");
        const LineMatch shorter = grammar.Match(std::string_view(line).substr(0, line.size() - 1));
        EXPECT_TRUE(!shorter || shorter.format->format != each.format) << line;
        const LineMatch longer = grammar.Match(line + "!");
        EXPECT_TRUE(!longer || longer.format->format != each.format) << line;
    }
}

TEST(LineGrammar, KnowsNothingOfForeignLines)
{
    const LineGrammar grammar;
    for (const char* line : {"", "x", "CCyUSBDriver::", "PCR->USB[12", "PCR->USB[x] 1", "DEV->PCR[03,01][0x5] A "})
    {
        EXPECT_FALSE(grammar.Match(line)) << line;
    }
}

} // namespace
