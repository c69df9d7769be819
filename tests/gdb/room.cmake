add_executable(gdb_subject gdb/subject.cc)
target_link_libraries(gdb_subject PRIVATE InvArad::InvArad)
target_compile_options(gdb_subject PRIVATE -g -O0 -fno-sanitize=all
                       $<$<CXX_COMPILER_ID:GNU>:-femit-class-debug-always>
                       $<$<CXX_COMPILER_ID:Clang>:-fstandalone-debug>)
