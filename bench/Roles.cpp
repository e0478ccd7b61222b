#include "bench/Roles.h"

#include "bench/Measure.h"
#include "tests/support/UniqueName.h"

namespace bench {

RoleProcess::RoleProcess(const std::string& role, std::string pipe, const std::string& task)
    : m_pipe(std::move(pipe)),
      m_readyName(support::UniqueName(L"BenchReady")),
      m_ready(::CreateEventW(nullptr, TRUE, FALSE, m_readyName.c_str())),
      m_process(support::ProgramFolder() / L"bench.exe",
                L"--role " + m_readyName + console::Wide(" " + role + " " + m_pipe + " " + task))
{
    Demand(support::WaitFor(m_ready.Get()), ("a child process does not get ready: " + role).c_str());
}

RoleProcess Simulator(InstrumentTask task)
{
    return {"framed", "UsbPipeSimulator", task.Words()};
}

RoleProcess BareInstrument(InstrumentTask task)
{
    return {"bare", support::UniqueName(std::string_view("BenchInstrument")), task.Words()};
}

RoleProcess BarePipeline(const RoleProcess& instrument)
{
    return {"pipeline", support::UniqueName(std::string_view("BenchPipeline")), instrument.Pipe()};
}

RoleProcess BusInstrument()
{
    return {"bus", "-"};
}

int PlayRole(const std::vector<std::string>& arguments)
{
    const console::ReadySignal ready(arguments.at(1));
    const std::string& role = arguments.at(2);
    const std::string& pipe = arguments.at(3);
    if (role == "bus") {
        PlayBusInstrument(ready);
    } else if (role == "pipeline") {
        PlayBarePipeline(pipe, arguments.at(4), ready);
    } else {
        const InstrumentTask task{static_cast<Mode>(std::stoi(arguments.at(4))), std::stoull(arguments.at(5))};
        PlayInstrument(pipe, role == "framed", task, ready);
    }
    return 1;
}

win32::FileHandle MakePipe(const std::string& name, DWORD type)
{
    win32::FileHandle pipe(::CreateNamedPipeW(support::PipePath(console::Wide(name)).c_str(),
                                              PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                              type | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr));
    Demand(static_cast<bool>(pipe), ("the pipe " + name + " can't be made").c_str());
    return pipe;
}

} // namespace bench
