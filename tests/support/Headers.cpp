// Nothing of its own: compiled for the headers that all tests share (see tests/CMakeLists.txt).
