# Writes the source that tells engine(): cmake -DROOT=... -DVERSION=... -DVERSIONS=... -DOUTPUT=... -P CorvaneBuildId.cmake
#
# The id is the beginning of the SHA-256 of a list: the versions of the libraries, then name and SHA-256 of each source in
# the order of their names. Neither time, path, compiler nor repository plays a part.
cmake_minimum_required(VERSION 3.25)
file(GLOB_RECURSE sources RELATIVE ${ROOT} ${ROOT}/include/*.h ${ROOT}/src/*.h ${ROOT}/src/*.cpp)
list(SORT sources)
set(list "${VERSION} ${VERSIONS}\n")
foreach(source IN LISTS sources)
  file(SHA256 ${ROOT}/${source} digest)
  string(APPEND list "${source} ${digest}\n")
endforeach()
string(SHA256 id "${list}")
string(SUBSTRING ${id} 0 16 id)
file(CONFIGURE OUTPUT ${OUTPUT} @ONLY CONTENT "#include \"corvane/Engine.h\"

namespace corvane {

std::string_view engine() noexcept {
    return \"${VERSION}+${id}\";
}

} // namespace corvane
")
