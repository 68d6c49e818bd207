/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/vexadm.h>

static void show(const char* path) {
  char line[256];
  FILE* file = fopen(path, "r");
  while (file && fgets(line, sizeof line, file)) fputs(line, stdout);
  if (file) fclose(file);
}

int main(void) {
  char buffer[VEXA_LOG_MESSAGE_SIZE];
  oem_watch("main.c", __LINE__, "modem restarted, reason %d", 7);
  vexa_write_msg2file("/tmp/messages", "first message");
  vexa_write_msg2file_ex(buffer, "/tmp/messages", "vexa_example", "signal %d dBm", -80);
  show("/data/oem/logs/fwawatchA.log");
  show("/tmp/messages");
  return 0;
}
