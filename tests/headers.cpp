// Nothing: see CMakeLists.txt.
