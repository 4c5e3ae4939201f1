# find_package(torvixe CONFIG): the imported target torvixe::torvixe (library and include
# directory). The library has no dependencies an application must link.
include("${CMAKE_CURRENT_LIST_DIR}/torvixeTargets.cmake")
