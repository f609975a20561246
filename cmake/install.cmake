get_property(libraries GLOBAL PROPERTY MORLU_LIBRARIES)
if(libraries)
  install(TARGETS ${libraries} EXPORT morlu-targets)
endif()
