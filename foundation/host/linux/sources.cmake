# What only this host can tell: the process table, embedded Info dictionaries, cheap copies, file
# events.
target_sources(foundation PRIVATE
  host/linux/EmbeddedInfo.cpp
  host/linux/FileAttributes.cpp
  host/linux/FileCloning.cpp
  host/linux/FileCopying.cpp
  host/linux/FileEvents.cpp
  host/linux/FileOpening.cpp
  host/linux/FileTimes.cpp
  host/linux/Process.cpp
  host/linux/SocketActivity.cpp)
