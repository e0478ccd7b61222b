# RouterLog's portable half: everything but what asks Windows. The native trees compile it once more for its tests.
morvane_sources(MORVANE_ROUTERLOG_SOURCES
    tools/RouterLog/log/*.cpp
    tools/RouterLog/analysis/*.cpp
    tools/RouterLog/report/*.cpp
    tools/RouterLog/capture/*.cpp
    tools/RouterLog/doctor/*.cpp
    tools/RouterLog/pack/*.cpp)
