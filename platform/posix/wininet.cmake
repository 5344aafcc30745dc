# HTTP over libcurl, for systems without <wininet.h>.
find_package(CURL 7.85 REQUIRED GLOBAL)
find_package(OpenSSL REQUIRED GLOBAL)
target_sources(kv_platform PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/wininet_calls.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wininet_errors.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wininet_headers.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wininet_objects.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wininet_query.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wininet_transfer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wininet_transfer_setup.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wininet_trust.cpp)
target_link_libraries(kv_platform PRIVATE CURL::libcurl OpenSSL::SSL OpenSSL::Crypto)
