# With BUILD_SHARED_LIBS: libvexa, the objects of all installed folders in one, but for what needs MPI.
# Everything is in it, so that the kinds of objects register themselves here too. It exports what
# installed headers declare, which say so by a pragma, and nothing else of ours.
get_property(libraries GLOBAL PROPERTY VEXA_SHARED_PARTS)
add_library(Vexa_vexa SHARED)
add_library(Vexa::vexa ALIAS Vexa_vexa)
foreach(library IN LISTS libraries)
  target_sources(Vexa_vexa PRIVATE $<TARGET_OBJECTS:${library}>)
  get_target_property(linked ${library} LINK_LIBRARIES)
  list(FILTER linked EXCLUDE REGEX "^Vexa::")
  target_link_libraries(Vexa_vexa PRIVATE ${linked})
endforeach()
vexa_harden(Vexa_vexa)
target_compile_features(Vexa_vexa PUBLIC cxx_std_20)
target_compile_definitions(Vexa_vexa PUBLIC H5_USE_18_API)
target_include_directories(Vexa_vexa INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                           $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/Bindings/C>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/Vexa>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(Vexa_vexa PUBLIC hdf5::hdf5)
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")    # of whose functions the program has those of all
  target_link_options(Vexa_vexa PRIVATE -Wl,-z,defs)
endif()
target_link_options(Vexa_vexa INTERFACE -rdynamic)
set_target_properties(Vexa_vexa PROPERTIES LINKER_LANGUAGE CXX OUTPUT_NAME vexa EXPORT_NAME vexa
                      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
install(TARGETS Vexa_vexa EXPORT VexaTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Shared NAMELINK_COMPONENT Development)
