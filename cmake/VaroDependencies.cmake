# Everything comes from the distribution's packages; docs/dependencies.md says what each is for.

find_package(Threads REQUIRED)
find_package(CURL 7.88 REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto SSL)
find_package(EXPAT 2.5 REQUIRED)
find_package(SQLite3 3.40 REQUIRED)
find_package(spdlog 1.10 REQUIRED)
find_package(fmt 9 REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS json)
