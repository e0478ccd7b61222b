// Any bytes at all: the account and its reports come to an end, within their bounds.
#include "tests/routerlog/portable/Json.h"
#include "tests/routerlog/portable/Logs.h"
#include "tools/RouterLog/report/HtmlReport.h"
#include "tools/RouterLog/report/JsonReport.h"
#include "tools/RouterLog/report/TextReport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

using namespace routerlog;
using routerlogtest::TextSource;

/// The entry of a coverage-guided fuzzer.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Account account;
    const std::size_t half = size / 2;
    for (const std::string_view part : {text.substr(0, half), text.substr(half)}) {
        TextSource source(part, 1 + size % 100);
        account.TakeFile("fuzz.log", source);
    }
    account.Finish();
    TextReport(account);
    HtmlReport(account, {});
    if (!routerlogtest::JsonText(JsonReport(account)).IsValid()) {
        std::abort();
    }
    return 0;
}

namespace {

using Random = std::minstd_rand;

/// A line of the table with random values.
std::string RandomLine(Random& random)
{
    static const char* const texts[] = {"\\\\.\\pipe\\a", "\\\\.\\pipe\\b", "Connected", "Not Connected", "",
                                        "A 00 .. ~more~", "_FirmwareDebug"};
    static const char* const numbers[] = {"0",
                                          "1",
                                          "2",
                                          "3",
                                          "255",
                                          "256",
                                          "-1",
                                          "2147483647",
                                          "-2147483648",
                                          "9223372036854775807",
                                          "99999999999999999999"};
    std::string_view format = TraceFormats()[random() % TraceFormats().size()].format;
    std::string line;
    while (!format.empty()) {
        const std::size_t length = std::min(format.find('%'), format.size());
        line += format.substr(0, length);
        format.remove_prefix(length);
        if (!format.empty()) {
            const std::size_t end = format.find_first_of("dsXu");
            line +=
                format[end] == 's' ? texts[random() % std::size(texts)] : numbers[random() % std::size(numbers)];
            format.remove_prefix(end + 1);
        }
    }
    return line;
}

std::string RandomStamp(Random& random)
{
    char stamp[80];
    std::snprintf(stamp, sizeof stamp, "[%02u-%02u-%02u %02u:%02u:%02u:%04u] ",
                  static_cast<unsigned>(random() % 13), static_cast<unsigned>(random() % 32),
                  static_cast<unsigned>(random() % 100), static_cast<unsigned>(random() % 25),
                  static_cast<unsigned>(random() % 60), static_cast<unsigned>(random() % 60),
                  static_cast<unsigned>(random() % 1000));
    return stamp;
}

std::string RandomLog(Random& random)
{
    std::string log;
    for (int line = 0; line < 60; ++line) {
        if (random() % 8 != 0) {
            log += RandomStamp(random);
        }
        log += RandomLine(random);
        log += random() % 16 == 0 ? "" : "\r\n";
    }
    for (std::size_t damage = random() % 6; damage > 0; --damage) {
        log[random() % log.size()] = static_cast<char>(random() >> 5);
    }
    return log.substr(0, 1 + random() % log.size());
}

TEST(AnyLog, ComesToAReport)
{
    Random random(20'261'121);
    for (int round = 0; round < 150; ++round) {
        const std::string log = RandomLog(random);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(log.data()), log.size());
    }
}

TEST(AnyBytes, ComeToAReport)
{
    Random random(42);
    for (int round = 0; round < 150; ++round) {
        std::vector<std::uint8_t> bytes(random() % 4'000);
        for (std::uint8_t& each : bytes) {
            each = static_cast<std::uint8_t>(random() >> 5);
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
}

} // namespace
