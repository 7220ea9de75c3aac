# The Java toolchain, set up once for every directory that builds Java or
# JNI code: Java 17 from the JDK, CMake's UseJava, and strict compilation.
find_package(Java 17 REQUIRED COMPONENTS Development Runtime)
include(UseJava)
# The sources are UTF-8; without -encoding javac would read them in the
# caller's locale (US-ASCII under a bare POSIX locale) and reject them.
set(CMAKE_JAVA_COMPILE_FLAGS -encoding UTF-8 --release 17 -Xlint:all -Werror)
