#include "simulation/scenario/TracerAccount.h"

#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr std::size_t StampLength = 25;
constexpr std::size_t LongestLine = 70'000; // with the banners around it
constexpr std::string_view LineBegin = "line ";

/// The number in a text of `form`; 0 when it is another text.
std::uint64_t NumberIn(std::string_view text, const char* form)
{
    unsigned long long number = 0;
    const std::string whole(text);
    return std::sscanf(whole.c_str(), form, &number) == 1 ? number : 0;
}

} // namespace

std::string TracerAccount::NextLine(std::size_t producer, std::size_t fill)
{
    const std::uint64_t number = ++m_producers[producer].traced;
    std::string line = std::string(LineBegin) + std::to_string(producer) + ' ' + std::to_string(number) + ' ' +
                       std::to_string(fill) + ' ';
    return line + std::string(fill, static_cast<char>('a' + number % 26));
}

void TracerAccount::AllowSize(std::size_t limit)
{
    m_largest = std::max(m_largest, limit);
}

// An injected fault may be a call that failed or memory that was refused.
std::uint64_t TracerAccount::Reasons() const
{
    return m_uncounted + m_banners + TheOutcome().injectedFaults;
}

void TracerAccount::OnGap(Producer& producer, std::uint64_t next)
{
    m_missing += next - producer.written - 1;
    if (Reasons() == producer.reasons) {
        Fault("lines of the trace are missing in the log, and nothing says why");
    }
}

void TracerAccount::OnLine(std::string_view line)
{
    const std::string whole(line);
    unsigned long long index = 0, number = 0, fill = 0;
    int head = 0;
    if (std::sscanf(whole.c_str(), "line %llu %llu %llu %n", &index, &number, &fill, &head) != 3 ||
        index >= m_producers.size())
    {
        Fault("a line of the log is none that was traced");
    }
    const std::string_view rest = line.substr(static_cast<std::size_t>(head));
    const char letter = static_cast<char>('a' + number % 26);
    if (rest.size() != fill || rest.find_first_not_of(letter) != std::string_view::npos) {
        Fault("a line of the log is not as it was traced");
    }
    Producer& producer = m_producers[index];
    if (number <= producer.written) {
        Fault("a line stands in the log again, or late");
    }
    if (number != producer.written + 1) {
        OnGap(producer, number);
    }
    producer.written = number;
    producer.reasons = Reasons();
}

void TracerAccount::OnWrite(std::string_view text, std::size_t written, std::size_t size)
{
    const OwnMemory own;
    if (size > m_largest + LongestLine) {
        Fault("the log grows beyond its limit");
    }
    m_log += text.substr(0, written);
    Note(("log: " + std::string(text.substr(0, std::min<std::size_t>(written, 60)))).c_str());
    if (!text.ends_with("\r\n")) {
        Fault("something is written to the log that is no line");
    }
    if (written != text.size()) {
        ++m_uncounted;
        return;
    }
    std::string_view line = text.substr(0, text.size() - 2);
    const bool isStamped = line.starts_with('[') && line.size() > StampLength;
    const std::string_view body = isStamped ? line.substr(StampLength) : line;
    if (body.starts_with(LineBegin)) {
        if (isStamped && line.substr(0, StampLength) < m_lastStamp) {
            Fault("the time stamps of two lines contradict their order");
        }
        m_lastStamp = isStamped ? line.substr(0, StampLength) : m_lastStamp;
        OnLine(body);
        return;
    }
    const std::uint64_t lost = NumberIn(body, "Buffer overflow, removing %llu entries") +
                               NumberIn(body, "********* %llu Entries Not Yet Processed");
    m_counted += lost;
    m_banners += lost != 0 ? 1 : 0;
    // A file that is opened again after the settings wanted none.
    m_uncounted += body.find("Begin Logging") != std::string_view::npos && m_log.size() > text.size() ? 1 : 0;
}

void TracerAccount::CheckEnd(bool mayDropLast, bool isExact)
{
    for (Producer& producer : m_producers) {
        if (producer.written != producer.traced && !mayDropLast) {
            OnGap(producer, producer.traced + 1);
        }
    }
    if (isExact && m_uncounted == 0 && TheOutcome().injectedFaults == 0 && !mayDropLast && m_missing != m_counted)
    {
        Fault("the log counts " + std::to_string(m_counted) + " lost lines, but misses " +
              std::to_string(m_missing));
    }
    if (!m_log.ends_with(BytesOf(LogPath))) {
        Fault("the log does not hold what was written last");
    }
}

} // namespace sim
