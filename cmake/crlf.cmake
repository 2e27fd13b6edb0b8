# Copies IN to OUT with every line ending in CR LF: cmake -DIN=... -DOUT=... -P crlf.cmake
file(READ ${IN} text)
string(REPLACE "\r\n" "\n" text "${text}")
string(REPLACE "\n" "\r\n" text "${text}")
file(WRITE ${OUT} "${text}")
