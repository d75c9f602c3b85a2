# What tells a program that runs in this tree, outside of the bundle, that it does (AppBundle.cpp).
file(WRITE ${CMAKE_BINARY_DIR}/vark-build-tree "Programs from here keep their files apart from those of an installed Vark.\n")

# For tests that start what lies in the tree (Tests/Support/BuildTree.h).
file(WRITE ${CMAKE_BINARY_DIR}/source-tree "${CMAKE_SOURCE_DIR}\n")

# The bundle in which the programs run, assembled in the build tree. Only a release has the identity of what
# people install; every other build keeps its files apart from it.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(VARK_BUNDLE_IDENTIFIER "dev.vark.mac")
  set(VARK_APP_GROUP "group.dev.vark")
else()
  set(VARK_BUNDLE_IDENTIFIER "dev.vark.mac.dev")
  set(VARK_APP_GROUP "dev.vark.group.dev")
endif()
set(VARK_BUNDLE ${CMAKE_BINARY_DIR}/Vark.app/Contents)
# For the tests that start these programs (Tests/Support/Programs.h).
file(WRITE ${CMAKE_BINARY_DIR}/programs "${VARK_BUNDLE_IDENTIFIER}\n${VARK_SANITIZE}\n")
configure_file(${CMAKE_SOURCE_DIR}/Packaging/Info.plist.in ${VARK_BUNDLE}/Info.plist @ONLY)
