# For scripts/machines libc++: what Debian has compiled for libstdc++ alone, and what we need of it,
# is compiled for libc++ from its sources.
file(CONFIGURE OUTPUT boost_json.cpp CONTENT "#include <boost/json/src.hpp>\n")
find_package(Boost 1.81 REQUIRED)
add_library(boost_json_libcxx STATIC ${PROJECT_BINARY_DIR}/boost_json.cpp)
add_library(Boost::json ALIAS boost_json_libcxx)
target_compile_features(boost_json_libcxx PUBLIC cxx_std_20)
target_compile_definitions(boost_json_libcxx PUBLIC BOOST_JSON_NO_LIB BOOST_CONTAINER_NO_LIB)
target_link_libraries(boost_json_libcxx PUBLIC Boost::headers)
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL)
