// Names, sizes and addresses of all kinds in Register, and calls that no client should make.
#include "tests/support/UniqueName.h"
#include "tests/system/ServedPort.h"
#include "tests/system/hostile/HostileFixture.h"
#include "win32/Thread.h"

#include <oleauto.h>

#include <climits>

namespace {

using hostile::Case;
using hostile::End;
using support::PipeClient;

struct Arguments
{
    LONG deviceType = End::DeviceType;
    ULONG port = 1;
    LONG readBuffer = 4096;
    LONG writeBuffer = 4096;
};

/// Every Register answers S_OK, whatever it was given.
void Register(End& end, const Arguments& arguments, const wchar_t* name, std::size_t length)
{
    const BSTR text = name != nullptr ? ::SysAllocStringLen(name, static_cast<UINT>(length)) : nullptr;
    EXPECT_EQ(end.Router().Register(arguments.deviceType, arguments.port, arguments.readBuffer,
                                    arguments.writeBuffer, text),
              S_OK);
    ::SysFreeString(text);
}

/// Each name names a device type of its own, and a port whose pipe is looked for.
Case Name(const char* title, LONG deviceType, const std::wstring& name)
{
    return {title, [=](End& end) {
                Register(end, {.deviceType = deviceType}, name.data(), name.size());
                auto& client = end.Hold(std::make_shared<PipeClient>());
                client.TryOpen(std::string(name.begin(), name.end()));
            }};
}

/// A name that is unusual and good: its pipe is served.
Case GoodName(const char* title, LONG deviceType, const std::string& name)
{
    return {title, [=](End& end) {
                const std::wstring wide(name.begin(), name.end());
                Register(end, {.deviceType = deviceType}, wide.data(), wide.size());
                auto& client = end.Hold(std::make_shared<PipeClient>());
                ASSERT_TRUE(served::Open(client, name));
            }};
}

std::vector<Case> Names()
{
    std::vector<Case> cases;
    LONG type = 30;
    const auto add = [&](const char* title, const std::wstring& name) {
        cases.push_back(Name(title, type++, name));
    };
    const auto addGood = [&](const char* title, const std::string& name) {
        cases.push_back(GoodName(title, type++, name));
    };
    add("Empty", L"");
    add("ABlank", L" ");
    add("ADot", L".");
    add("DotsOnly", L"......");
    add("BackslashesOnly", L"\\\\\\");
    add("APathUpwards", L"..\\..\\pipe\\x");
    add("AWholePath", LR"(\\.\pipe\Hostile)");
    add("ADrive", L"C:\\Windows\\x");
    add("Wildcards", L"*?<>|\"");
    add("LineBreaks", L"a\r\nb\r\n01-01-2026 forged line");
    add("ControlCharacters", L"\x01\x02\x1B[31m\x7F");
    add("AZeroInside", std::wstring(L"in\0side", 7));
    add("ZerosOnly", std::wstring(50, L'\0'));
    add("Of257Letters", std::wstring(257, L'n'));
    add("Of70000Letters", std::wstring(70'000, L'n'));
    add("OfAMillionLetters", std::wstring(1'000'000, L'n'));
    add("OfAMillionDots", std::wstring(1'000'000, L'.'));
    add("BeyondTheCodePage", L"\x4E2D\x6587\x0416\x05D0");
    add("HalfASurrogatePair", L"\xD83D");
    add("APair", L"\xD83D\xDE00");
    add("AReservedDevice", L"NUL");
    add("TheInstrumentsPipe", L"UsbPipeSimulator");
    add("FormatDirectives", L"%s%s%n%p%1$n%999999d");
    add("ARegistryPath", L"Software\\Morvane Biosystems\\x");
    addGood("AGoodOneWithFormatDirectives", support::UniqueName("Hostile%d%s%n"));
    addGood("AGoodOneWithBlanksAndDots", support::UniqueName("Hostile . . name"));
    addGood("AGoodOneOf200Letters", support::UniqueName(std::string(200, 'g')));
    return cases;
}

Case Sizes(const char* title, LONG readBuffer, LONG writeBuffer)
{
    return {title, [=](End& end) {
                auto& client = end.Hold(std::make_shared<PipeClient>());
                const std::string name = end.Register(1, readBuffer, writeBuffer);
                // Whether such a pipe can be had is the system's affair.
                if (client.Open(name, std::chrono::milliseconds(200))) {
                    client.Write("hello", std::chrono::milliseconds(100));
                    client.Read(std::chrono::milliseconds(100));
                }
            }};
}

Case Address(const char* title, LONG deviceType, ULONG port)
{
    return {title, [=](End& end) {
                const std::wstring name = support::UniqueName(L"Hostile");
                Register(end, {.deviceType = deviceType, .port = port}, name.data(), name.size());
                auto& client = end.Hold(std::make_shared<PipeClient>());
                client.Open(std::string(name.begin(), name.end()), std::chrono::milliseconds(200));
            }};
}

void NoName(End& end)
{
    Register(end, {}, nullptr, 0);
}

void TheAddressOfTheOtherClient(End& end)
{
    const std::wstring name = support::UniqueName(L"Hostile");
    Register(end, {.deviceType = 3, .port = 1}, name.data(), name.size());
    PipeClient client;
    EXPECT_FALSE(client.Open(std::string(name.begin(), name.end()), std::chrono::milliseconds(200)));
}

void ThePipeOfTheOtherClient(End& end)
{
    const std::string name = end.Everyone().Client().Pipe();
    const std::wstring wide(name.begin(), name.end());
    Register(end, {}, wide.data(), wide.size());
}

/// COM's own lookup of a method, as a script host does it.
HRESULT Invoke(IDispatch& object, DISPID id, std::vector<VARIANT> arguments, WORD flags = DISPATCH_METHOD)
{
    DISPPARAMS parameters{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
    EXCEPINFO exception{};
    UINT wrong = 0;
    return object.Invoke(id, IID_NULL, LOCALE_NEUTRAL, flags, &parameters, nullptr, &exception, &wrong);
}

VARIANT Number(LONG value)
{
    VARIANT variant{};
    variant.vt = VT_I4;
    variant.lVal = value;
    return variant;
}

void Methods(End& end)
{
    for (const DISPID id : {0, -1, 3, INT_MAX, INT_MIN}) {
        EXPECT_TRUE(FAILED(Invoke(end.Router(), id, {})));
    }
}

void TooFewArguments(End& end)
{
    EXPECT_TRUE(FAILED(Invoke(end.Router(), 1, {Number(1), Number(2)})));
    EXPECT_TRUE(FAILED(Invoke(end.Router(), 2, {})));
}

void TooManyArguments(End& end)
{
    // Refused by Windows; Wine ignores those that are too many.
    Invoke(end.Router(), 2, std::vector<VARIANT>(200, Number(1)));
}

void ArgumentsOfOtherTypes(End& end)
{
    VARIANT object{};
    object.vt = VT_DISPATCH;
    VARIANT nothing{};
    nothing.vt = VT_NULL;
    EXPECT_TRUE(FAILED(Invoke(end.Router(), 1, {nothing, object, nothing, object, nothing})));
}

void AMethodAsAProperty(End& end)
{
    EXPECT_TRUE(FAILED(Invoke(end.Router(), 1, {Number(1)}, DISPATCH_PROPERTYPUT)));
}

void RemovalsOfUnregisteredPorts(End& end)
{
    for (ULONG port = 0; port < 100; ++port) {
        ASSERT_EQ(end.Router().Unregister(static_cast<LONG>(port) - 50, UINT_MAX - port), S_OK);
    }
}

void TheSameRegistration100Times(End& end)
{
    for (int time = 0; time < 100; ++time) {
        end.Register(1);
    }
}

void ARegistrationAndARemoval40Times(End& end)
{
    for (int time = 0; time < 40; ++time) {
        end.Register(1);
        ASSERT_EQ(end.Router().Unregister(End::DeviceType, 1), S_OK);
    }
}

void FiftyPortsAtOnce(End& end)
{
    for (ULONG port = 1; port <= 50; ++port) {
        end.Register(port);
    }
}

void ThirtyObjects(End&)
{
    std::vector<hostile::Object> objects;
    for (int count = 0; count < 30; ++count) {
        objects.push_back(hostile::CreateObject());
        ASSERT_TRUE(objects.back());
    }
}

/// Four threads with an object each, all registering the same address.
void CallsFromFourThreads(End&)
{
    std::atomic<int> failed{0};
    {
        std::array<win32::Thread, 4> callers;
        for (win32::Thread& caller : callers) {
            caller.Start([&] {
                ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                if (const hostile::Object object = hostile::CreateObject()) {
                    const BSTR name = ::SysAllocString(support::UniqueName(L"Hostile").c_str());
                    for (int call = 0; call < 30; ++call) {
                        failed += object->Register(End::DeviceType, 77, 64, 64, name) == S_OK ? 0 : 1;
                    }
                    ::SysFreeString(name);
                } else {
                    ++failed;
                }
                ::CoUninitialize();
            });
        }
    }
    EXPECT_EQ(failed, 0);
}

class HostileCall : public hostile::HostileEnd
{};

TEST_P(HostileCall, CostsTheOtherClientNothing)
{
    ActAndLook();
}

INSTANTIATE_TEST_SUITE_P(RegistersAName, HostileCall, testing::ValuesIn(Names()), hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(RegistersSizes, HostileCall,
                         testing::Values(Sizes("Zero", 0, 0), Sizes("One", 1, 1), Sizes("NoReadBuffer", 0, 4096),
                                         Sizes("NoWriteBuffer", 4096, 0), Sizes("BelowZero", -1, -1),
                                         Sizes("TheLowest", LONG_MIN, LONG_MIN),
                                         Sizes("AMegabyte", 1 << 20, 1 << 20),
                                         Sizes("AHundredMegabytes", 100 << 20, 100 << 20),
                                         Sizes("TheHighest", 1, LONG_MAX)),
                         hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(RegistersAnAddress, HostileCall,
                         testing::Values(Address("OfTheDownloader", 0, 0), Address("AnyDevice", -1, 2),
                                         Address("AnyPort", 3, UINT_MAX), Address("OfTheIdlePacket", 238, 238),
                                         Address("ThatNeedsTwoBytes", 259, 1), Address("TheLowest", LONG_MIN, 0),
                                         Address("TheHighest", LONG_MAX, UINT_MAX),
                                         Case{"OfTheOtherClient", TheAddressOfTheOtherClient},
                                         Case{"WithoutAName", NoName},
                                         Case{"WithThePipeOfTheOtherClient", ThePipeOfTheOtherClient}),
                         hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(Makes, HostileCall,
                         testing::Values(Case{"CallsOfMethodsThatThereAreNot", Methods},
                                         Case{"ACallWithTooFewArguments", TooFewArguments},
                                         Case{"ACallWithTooManyArguments", TooManyArguments},
                                         Case{"ACallWithArgumentsOfOtherTypes", ArgumentsOfOtherTypes},
                                         Case{"ACallOfAMethodAsAProperty", AMethodAsAProperty},
                                         Case{"RemovalsOfUnregisteredPorts", RemovalsOfUnregisteredPorts},
                                         Case{"TheSameRegistration100Times", TheSameRegistration100Times},
                                         Case{"ARegistrationAndARemoval40Times", ARegistrationAndARemoval40Times},
                                         Case{"FiftyPortsAtOnce", FiftyPortsAtOnce},
                                         Case{"ThirtyObjects", ThirtyObjects},
                                         Case{"CallsFromFourThreads", CallsFromFourThreads}),
                         hostile::NameOf);

} // namespace
