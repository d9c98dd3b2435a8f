# SPDX-License-Identifier: Apache-2.0
# The test of schedules runs on copies of the library's sources in which every access to a word that threads share and
# every lock is a step of the scheduler (testing/scheduled_words.h), and in which faults can be planted. The copies are made of
# the sources as they are now and stand in front of them for this one program.
set(scheduled_dir ${CMAKE_CURRENT_BINARY_DIR}/scheduled)

# scheduled_copy(FILE [TEXT PLANTED]...): a copy of FILE in which each TEXT is replaced. It must be there, unless the source
# is full of other planted faults.
function(scheduled_copy file)
    set(original ${PROJECT_SOURCE_DIR}/dravik/adt/${file})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${original})
    file(READ ${original} text)
    set(scheduled ::Quorvel::Dravik::Adt::Testing::Schedule)
    string(REPLACE "std::atomic_ref<" "${scheduled}dRef<" text "${text}")
    string(REPLACE "std::atomic<" "${scheduled}dAtomic<" text "${text}")
    string(REPLACE "std::recursive_mutex" "${scheduled}dMutex" text "${text}")
    string(REPLACE "std::mutex" "${scheduled}dMutex" text "${text}")
    string(REPLACE "std::condition_variable" "${scheduled}dCondition" text "${text}")
    string(REPLACE "std::this_thread::yield()" "${scheduled}::letOthersRun()" text "${text}")
    while(ARGN)
        list(POP_FRONT ARGN from to)
        string(FIND "${text}" "${from}" place)
        if(place EQUAL -1 AND NOT DRAVIK_ADT_MUTATED)
            message(FATAL_ERROR "${file} no longer says \"${from}\", where a fault is planted")
        endif()
        string(REPLACE "${from}" "${to}" text "${text}")
    endwhile()
    file(CONFIGURE OUTPUT ${scheduled_dir}/dravik/adt/${file}
         CONTENT "#include \"dravik/adt/testing/scheduled_words.h\"\n${text}" @ONLY)
endfunction()

set(planted "Testing::isPlanted(Testing::Planted::")
scheduled_copy(core/lightweight_mutex.h)
scheduled_copy(core/shared.h)
scheduled_copy(bulkview/detail/shared_word.h)
scheduled_copy(bulkview/filters/stateful_buffer_accessor_filter.h)
# Given back at once: while it is on its way to the others they wait, and windows after it would hardly ever be met.
set(scheduler ::Quorvel::Dravik::Adt::Testing::Schedule)
scheduled_copy(bulkview/filters/detail/brief_mutex.h
    "isHeld_.store(false, std::memory_order_release)"
    "isHeld_.store(false, std::memory_order_release), ${scheduler}::settle(), ${scheduler}::step()")
scheduled_copy(bulkview/detail/counted_slot.h
    "word = hold()" "word = ${planted}kUnheldSlot) ? word_.load(std::memory_order_acquire) : hold()")
scheduled_copy(bulkview/buffer_handle.h
    "Detail::isInOrder(notices_, notices & ~(kMarked | kAllUnderWay))"
    "${planted}kPlainQuestion) ? !isInvalidated() : Detail::isInOrder(notices_, notices & ~(kMarked | kAllUnderWay))")
scheduled_copy(bulkview/buffer_handle.cpp
    "Detail::add(self.notices_, kUnderWay)"
    "${planted}kMarkAlone) ? Detail::setBits(self.notices_, kMarked) : Detail::add(self.notices_, kUnderWay)"
    "Detail::add(self.notices_, kOneMore - kUnderWay)"
    "${planted}kMarkAlone) ? void() : Detail::add(self.notices_, kOneMore - kUnderWay)"
    "(taken ? kOneMore : 0)" "(taken && !${planted}kUncountedTakeBack) ? kOneMore : 0)")
scheduled_copy(bulkview/filters/cache_filter.cpp
    "isLate = removals_" "isLate = !${planted}kLateBlock) && removals_")
scheduled_copy(bulkview/stores/detail/brick_table.h)
scheduled_copy(bulkview/stores/detail/pooled_store.h)
scheduled_copy(bulkview/stores/detail/brick_table.cpp
    "bool const isHeld = brick" "bool const isHeld = !${planted}kForgottenWriter) && brick")

# Copies as well where nothing changes, so that whoever lists the commands of a source finds one only.
set(unchanged
    core/array_ref.cpp core/fixed_vector.cpp core/shared.cpp exceptions/cloneable_exception.cpp
    exceptions/cloneable_exception_base.cpp exceptions/simple_exception.cpp bulkview/buffer_accessor.cpp
    bulkview/regions/access_traits.cpp bulkview/stores/brick_store.cpp bulkview/stores/detail/brick.cpp
    bulkview/stores/detail/pooled_store.cpp
    bulkview/views/view_base.cpp bulkview/views/view_exceptions.cpp
    bulkview/filters/buffer_accessor_filter.cpp
    bulkview/filters/detail/brick_grid.cpp bulkview/filters/detail/cache_index.cpp bulkview/filters/proxy_filter.cpp
    bulkview/filters/stateful_buffer_accessor_filter.cpp)
foreach(file IN LISTS unchanged)
    scheduled_copy(${file})
endforeach()

set(sources bulkview/buffer_handle.cpp bulkview/filters/cache_filter.cpp bulkview/stores/detail/brick_table.cpp
    ${unchanged})
list(TRANSFORM sources PREPEND ${scheduled_dir}/dravik/adt/)
add_library(dravik_adt_scheduled OBJECT ${sources})
dravik_adt_configure_target(dravik_adt_scheduled)
target_compile_options(dravik_adt_scheduled PUBLIC "SHELL:-iquote ${scheduled_dir}")
target_link_libraries(dravik_adt_scheduled PUBLIC dravik_adt_platform)

dravik_adt_test(schedule_test SOURCES schedule_test.cpp LIBRARIES dravik_adt_scheduled ALONE)
dravik_adt_test(pool_schedule_test SOURCES stores/pool_schedule_test.cpp LIBRARIES dravik_adt_scheduled ALONE)
