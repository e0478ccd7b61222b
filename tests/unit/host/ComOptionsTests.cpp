#include "host/ComServer.h"

#include <gtest/gtest.h>
#include <objbase.h>
#include <utility>
#include <vector>

namespace {

/// COM's options as a list of what was set. Its references are not counted.
class RecordedOptions final : public IGlobalOptions
{
public:
    virtual ~RecordedOptions() = default;

    STDMETHODIMP QueryInterface(REFIID /*id*/, void** /*object*/) noexcept override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() noexcept override { return 2; }
    STDMETHODIMP_(ULONG) Release() noexcept override { return 1; }
    STDMETHODIMP Set(GLOBALOPT_PROPERTIES property, ULONG_PTR value) noexcept override
    {
        settings.emplace_back(property, value);
        return property == refused ? E_INVALIDARG : S_OK;
    }
    STDMETHODIMP Query(GLOBALOPT_PROPERTIES /*property*/, ULONG_PTR* /*value*/) noexcept override
    {
        return E_NOTIMPL;
    }

    std::vector<std::pair<GLOBALOPT_PROPERTIES, ULONG_PTR>> settings;
    GLOBALOPT_PROPERTIES refused{};
};

TEST(ComOptions, DeadClientsAreRunDownAtOnceAndFaultsNotSwallowed)
{
    RecordedOptions options;
    EXPECT_EQ(SetComOptions(options), S_OK);
    // As "GLOBALOPT_RO_FLAGS enumeration" and "GLOBALOPT_EH_VALUES enumeration" have them.
    const std::vector<std::pair<GLOBALOPT_PROPERTIES, ULONG_PTR>> expected{{COMGLB_RO_SETTINGS, 0x8},
                                                                           {COMGLB_EXCEPTION_HANDLING, 0x2}};
    EXPECT_EQ(options.settings, expected);
}

TEST(ComOptions, ASettingThatIsRefusedStopsNotTheOther)
{
    RecordedOptions options;
    options.refused = COMGLB_RO_SETTINGS;
    EXPECT_EQ(SetComOptions(options), E_INVALIDARG);
    EXPECT_EQ(options.settings.size(), 2U);
}

TEST(ComOptions, ComTakesThem)
{
    ASSERT_EQ(::CoInitialize(nullptr), S_OK);
    EXPECT_EQ(SetComOptions(), S_OK);
    ::CoUninitialize();
}

TEST(ComOptions, WithoutComTheyAreRefused)
{
    EXPECT_EQ(SetComOptions(), CO_E_NOTINITIALIZED);
}

} // namespace
