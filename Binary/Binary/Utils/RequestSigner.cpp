#include "Binary/Binary/Utils/RequestSigner.h"

#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Binary/Binary/Utils/S3SigningConstants.h"

namespace varo::binary {

std::shared_ptr<RequestSigner> RequestSigner::ofDownload(const platform::Dictionary& filledTemplate,
                                                         const platform::Clock& clock) {
  return std::make_shared<RequestSigner>([filledTemplate, &clock] {
    S3HMACGenerator generator(filledTemplate[signing::kAuthParameters].dictionaryValue(),
                              filledTemplate, platform::Data(), S3OperationType::kDownload, clock);
    return generator.getRequestHeaders(S3OperationType::kDownload);
  });
}

}  // namespace varo::binary
