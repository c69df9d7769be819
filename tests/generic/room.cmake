# Hundreds of small functions in tables: to optimise them takes longer than to run them.
set_source_files_properties(generic/access_test.cc PROPERTIES COMPILE_OPTIONS -O0)
