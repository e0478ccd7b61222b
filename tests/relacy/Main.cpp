// Runs every case of every subject: the product's sources pass all, each mutant fails one.
#include "tests/relacy/Model.h"

#include <cstdio>
#include <ostream>
#include <streambuf>
#include <string_view>

namespace relacytest {

namespace {

const Case* g_case = nullptr; // the one that is being run

/// The model checker's view of any model with so many threads.
template <int Threads>
struct Suite : rl::test_suite<Suite<Threads>, Threads>
{
    void before() { m_model = g_case->make(); }
    void thread(unsigned index) { m_model->Thread(index); }
    void after()
    {
        m_model->After();
        m_model.reset();
    }

    std::unique_ptr<Model> m_model;
};

/// Keeps the beginning of what is written. While a model runs, memory from new belongs to the model.
class FixedBuffer : public std::streambuf
{
public:
    FixedBuffer() { Clear(); }
    void Clear() { setp(m_text, m_text + sizeof m_text); }
    std::string_view Text() const { return {pbase(), static_cast<std::size_t>(pptr() - pbase())}; }

private:
    char m_text[1 << 16];
};

FixedBuffer g_report; // of the case that is being run

struct Outcome
{
    bool passed;
    unsigned long long orders;
};

/// The first line of the report with the kind of failure.
std::string_view Reason()
{
    std::string_view text = g_report.Text();
    text.remove_prefix(text.find('\n') + 1);
    return text.substr(0, text.find('\n'));
}

Outcome Run(const Case& tried)
{
    g_case = &tried;
    g_report.Clear();
    std::ostream report(&g_report);
    rl::test_params params;
    params.output_stream = &report;
    params.progress_stream = &report;
    params.search_type = tried.search == Case::Search::All ? rl::sched_full : rl::sched_bound;
    params.context_bound = tried.search == Case::Search::Bound2 ? 2 : 3;
    const bool passed = tried.threads == 2 ? rl::simulate<Suite<2>>(params) : rl::simulate<Suite<3>>(params);
    return {passed, params.stop_iteration};
}

/// Whether the subject did what it has to.
bool Try(const Subject& subject)
{
    for (const Case& each : subject.cases) {
        const Outcome outcome = Run(each);
        if (subject.mutation == nullptr) {
            std::printf("%s, %s: %s after %llu orders\n", subject.name, each.name,
                        outcome.passed ? "passed" : "FAILED", outcome.orders);
            if (!outcome.passed) {
                std::printf("%.*s\n", static_cast<int>(g_report.Text().size()), g_report.Text().data());
                return false;
            }
        } else if (!outcome.passed) {
            std::printf("%s, %s: killed by '%s' in order %llu: %.*s\n", subject.name, subject.mutation, each.name,
                        outcome.orders, static_cast<int>(Reason().size()), Reason().data());
            return true;
        }
    }
    if (subject.mutation != nullptr) {
        std::printf("%s, %s: SURVIVED\n", subject.name, subject.mutation);
    }
    return subject.mutation == nullptr;
}

} // namespace

} // namespace relacytest

int main()
{
    using namespace relacytest;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    int faults = 0;
    for (const auto subjects : {OnDemandEventSubjects(), MirroredEventSubjects(), CommandQueueSubjects(),
                                TraceTableSubjects(), PortTableSubjects()})
    {
        for (const Subject& subject : subjects) {
            faults += Try(subject) ? 0 : 1;
        }
    }
    return faults == 0 ? 0 : 1;
}
