# Device events on their way to the cloud, the device list and the Circle service.
add_library(dro_pipeline_support OBJECT pipeline.cpp store_spy.cpp)
target_link_libraries(dro_pipeline_support PUBLIC dro_test_support PRIVATE dro_flags)

foreach(area record registration timer fifo dispatcher pushes notifications list list_watch circle_orders
        circle_monitors thread_failures)
    dro_add_agent_test(agent_${area}_test ${area}_test.cpp $<TARGET_OBJECTS:dro_pipeline_support>)
endforeach()
