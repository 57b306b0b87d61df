// call_daemon SOCKET TARGET BODY: sends one POST and prints the status and the body of the reply.

#include <cstdio>

#include "integration/socket_client.h"

int main(int count, char** arguments) {
  if (count != 4) return 2;
  const auto response = paddock::testing::request(arguments[1], "POST", arguments[2], arguments[3]);
  std::printf("%d %s", response.status, response.body.c_str());
  return response.status == 0 ? 3 : 0;
}
