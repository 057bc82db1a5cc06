# The process table, embedded Info dictionaries, cheap copies and file events on Linux.
set(host_sources
  linux/EmbeddedInfo.cpp
  linux/FileAttributes.cpp
  linux/FileCopying.cpp
  linux/FileEvents.cpp
  linux/FileOpening.cpp
  linux/FileTimes.cpp
  linux/Process.cpp
  linux/SocketActivity.cpp)
