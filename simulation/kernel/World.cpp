#include "simulation/kernel/World.h"

#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Disk.h"
#include "simulation/kernel/Messages.h"
#include "simulation/kernel/Objects.h"
#include "simulation/kernel/Pipes.h"
#include "simulation/kernel/Registry.h"
#include "simulation/kernel/Requests.h"

namespace sim {

World::World()
    : objects(std::make_unique<Objects>()),
      requests(std::make_unique<Requests>()),
      pipes(std::make_unique<PipeNames>()),
      devices(std::make_unique<Devices>()),
      storage(std::make_unique<Storage>()),
      disk(std::make_unique<Disk>()),
      messages(std::make_unique<Messages>())
{
}

World::~World()
{
    for (const auto& fiber : fibers) {
        if (fiber->thread != nullptr) {
            intrusive_ptr_release(fiber->thread);
        }
    }
    deferred.clear();
    objects->handles.clear();
}

} // namespace sim
