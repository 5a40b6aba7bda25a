// The application: wanderer ZONE [HELPER-SOCKET ISSUER-SOCKET]

#include <cstdio>

#include <corvane/PrivilegedHelperClient.h>
#include <corvane/platform/HelperAddress.h>

int main(int argc, char* argv[]) {
  if (argc != 2 && argc != 4) return 2;
  corvane::PrivilegedHelperClient::Options options;
  options.helperAddress = corvane::helperAddressOf("com.corvane.system.privilegedhelper-wanderer");
  if (argc == 4) {
    options.helperAddress = argv[2];
    options.issuerAddress = argv[3];
  }
  corvane::PrivilegedHelperClient client(options);
  const auto outcome = client.perform(0, {argv[1]});
  if (!outcome) {
    std::fprintf(stderr, "%s\n", outcome.error().description.c_str());
    return 1;
  }
  if (outcome->error) {
    std::fprintf(stderr, "%s\n", outcome->error->localizedDescription().c_str());
    return 1;
  }
}
