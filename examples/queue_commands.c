/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vexadm/vexadm.h>

/* What a queue of commands carries: the record belongs to whoever took it from the queue. */
struct command {
  struct q_link_node link;
  vexa_cmd_q_data* data;
};

int main(void) {
  struct q_queue commands;
  struct command send_text = {.data = vexa_malloc_cmd_q_data(5)};
  vexa_set_log_level(4);
  ((vexa_cmd_q_text*)send_text.data->payload)->text = strdup("balance?"); /* freed with the record */

  q_init(&commands);
  q_put(&commands, q_link(&send_text, &send_text.link));
  for (struct command* command; (command = (struct command*)q_get(&commands)) != NULL;) {
    const vexa_cmd_q_text* text = command->data->payload;
    printf("command of type %d: %s\n", (int)command->data->cmd_type, text->text);
    vexa_free_cmd_q_data(command->data);
  }
  return q_destroy(&commands);
}
