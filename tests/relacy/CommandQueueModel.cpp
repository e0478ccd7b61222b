// ports/packet/CCommandQueue: with its event, and with its condition variable. Every command comes out once, those
// of one producer in order, and the consumer never sleeps over a queue that holds something.
#include "ports/packet/CCommandQueue.h"
#include "ports/packet/CCommandQueueM1.h"
#include "ports/packet/CCommandQueueM2.h"
#include "ports/packet/CCommandQueueM3.h"
#include "ports/packet/CCommandQueueM4.h"
#include "ports/packet/CCommandQueueM5.h"
#include "ports/packet/CCommandQueueM6.h"
#include "tests/relacy/Model.h"

namespace relacytest {

namespace {

/// Thread 0 consumes, every other thread produces `PerProducer` commands.
template <class Queue, int Producers, int PerProducer>
class Transfer : public Model
{
public:
    explicit Transfer(typename Queue::Waiting waiting) : m_queue(waiting) {}

    void Thread(unsigned index) override
    {
        if (index == 0) {
            Consume();
        } else {
            Produce(index);
        }
    }
    void After() override
    {
        RL_ASSERT(m_queue.GetCount() == 0);
        RL_ASSERT(m_queue.Take() == nullptr);
    }

protected:
    virtual void Consume() = 0;

    void Produce(unsigned index)
    {
        for (int each = 0; each < PerProducer; ++each) {
            const std::uint8_t bytes[] = {static_cast<std::uint8_t>(index), static_cast<std::uint8_t>(each)};
            m_queue.Push(std::make_unique<CSerialPortCommand>(bytes, 2, true, false));
        }
    }
    /// Takes the command into account; null is none.
    void Receive(const std::unique_ptr<CSerialPortCommand>& command)
    {
        if (command) {
            RL_ASSERT(command->GetByteAt(1) == m_next[command->GetByteAt(0)]);
            ++m_next[command->GetByteAt(0)];
            ++m_received;
        }
    }
    bool IsComplete() const noexcept { return m_received == Producers * PerProducer; }

    Queue m_queue;

private:
    std::array<std::uint8_t, 3> m_next{}; // by producer; the consumer's
    int m_received = 0;                   // the consumer's
};

/// The consumer waits for the event and resets it after it has handled what it took, as a port does.
template <class Queue, int Producers, int PerProducer>
class ByEvent : public Transfer<Queue, Producers, PerProducer>
{
public:
    ByEvent() : Transfer<Queue, Producers, PerProducer>(Queue::Waiting::ByEvent) {}

private:
    void Consume() override
    {
        while (!this->IsComplete()) {
            ::WaitForSingleObject(this->m_queue.GetNotEmptyEvent(), INFINITE);
            this->Receive(this->m_queue.Take());
            this->m_queue.ResetEventIfEmpty();
        }
    }
};

/// The consumer takes with Pop, as the command thread does.
template <class Queue, int Producers, int PerProducer>
class ByPop : public Transfer<Queue, Producers, PerProducer>
{
public:
    ByPop() : Transfer<Queue, Producers, PerProducer>(Queue::Waiting::ByEvent) {}

private:
    void Consume() override
    {
        while (!this->IsComplete()) {
            ::WaitForSingleObject(this->m_queue.GetNotEmptyEvent(), INFINITE);
            auto command = this->m_queue.Pop();
            if (!command) {
                this->m_queue.ResetEventIfEmpty();
            }
            this->Receive(command);
        }
    }
};

/// The consumer waits by the condition variable, as the reply thread does.
template <class Queue, int Producers, int PerProducer>
class Alone : public Transfer<Queue, Producers, PerProducer>
{
public:
    Alone() : Transfer<Queue, Producers, PerProducer>(Queue::Waiting::Alone) {}

private:
    void Consume() override
    {
        while (!this->IsComplete()) {
            this->m_queue.AwaitNotEmpty(INFINITE);
            this->Receive(this->m_queue.Pop());
        }
    }
};

/// Thread 0 waits until it is told to stop, thread 1 tells it; a third produces meanwhile.
template <class Queue>
class Interrupted : public Model
{
public:
    void Thread(unsigned index) override
    {
        if (index == 0) {
            while (!m_stop.load()) {
                m_queue.AwaitNotEmpty(INFINITE);
                m_queue.Pop();
            }
        } else if (index == 1) {
            m_stop.store(true);
            m_queue.Interrupt();
        } else {
            m_queue.Push(std::make_unique<CSerialPortCommand>(nullptr, 0, true, false));
        }
    }
    void After() override { m_queue.DestroyAll(); }

private:
    Queue m_queue{Queue::Waiting::Alone};
    std::atomic<bool> m_stop{false};
};

template <class Queue>
constexpr Case EventCases[] = {
    {"one producer, by event", 2, Case::Search::All, Make<ByEvent<Queue, 1, 1>>},
    {"one producer, by Pop", 2, Case::Search::All, Make<ByPop<Queue, 1, 1>>},
    {"one producer of two, by event", 2, Case::Search::All, Make<ByEvent<Queue, 1, 2>>},
    {"two producers, by event", 3, Case::Search::Bound3, Make<ByEvent<Queue, 2, 1>>},
    {"two producers, by Pop", 3, Case::Search::Bound3, Make<ByPop<Queue, 2, 1>>},
};

template <class Queue>
constexpr Case ConditionCases[] = {
    {"one producer, by condition", 2, Case::Search::All, Make<Alone<Queue, 1, 1>>},
    {"one producer of two, by condition", 2, Case::Search::All, Make<Alone<Queue, 1, 2>>},
    {"interrupted", 2, Case::Search::All, Make<Interrupted<Queue>>},
    {"two producers, by condition", 3, Case::Search::Bound3, Make<Alone<Queue, 2, 1>>},
    {"interrupted while one produces", 3, Case::Search::Bound3, Make<Interrupted<Queue>>},
};

constexpr Subject Subjects[] = {
    {"CCommandQueue", nullptr, EventCases<CCommandQueue>},
    {"CCommandQueue", nullptr, ConditionCases<CCommandQueue>},
    {"CCommandQueue", "the event is reset outside the lock", EventCases<CCommandQueueM1>},
    {"CCommandQueue", "Take without the lock", EventCases<CCommandQueueM2>},
    {"CCommandQueue", "Push looks at the count after the lock", EventCases<CCommandQueueM3>},
    {"CCommandQueue", "Interrupt sets its flag without the lock", ConditionCases<CCommandQueueM4>},
    {"CCommandQueue", "the wait does not look at the commands first", ConditionCases<CCommandQueueM5>},
    {"CCommandQueue", "the wait does not look at the interruption", ConditionCases<CCommandQueueM6>},
};

} // namespace

std::span<const Subject> CommandQueueSubjects()
{
    return Subjects;
}

} // namespace relacytest
