# The Java toolchain, set up once for every directory that builds Java or
# JNI code: Java 17 from the JDK, CMake's UseJava, and strict compilation.
find_package(Java 17 REQUIRED COMPONENTS Development Runtime)
include(UseJava)
set(CMAKE_JAVA_COMPILE_FLAGS --release 17 -Xlint:all -Werror)
