# find_package(rixstats [COMPONENTS shared static simulator])
#
# gives rixstats::rixstats (the shared library), rixstats::rixstats_static and, where the tools were installed too,
# rixstats::simulator, a gateway for tests. A component is named to be sure of it: all that is installed is found.
include(CMakeFindDependencyMacro)
find_dependency(Threads)

include(${CMAKE_CURRENT_LIST_DIR}/rixstatsTargets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/rixstatsSimulatorTargets.cmake OPTIONAL)

set(rixstats_shared_FOUND ON)
set(rixstats_static_FOUND ON)
if(TARGET rixstats::simulator)
  set(rixstats_simulator_FOUND ON)
endif()

foreach(component IN LISTS rixstats_FIND_COMPONENTS)
  if(rixstats_FIND_REQUIRED_${component} AND NOT rixstats_${component}_FOUND)
    set(rixstats_FOUND OFF)
    set(rixstats_NOT_FOUND_MESSAGE "rixstats was installed without its component ${component} \
(there are shared, static and, with the tools, simulator)")
  endif()
endforeach()
