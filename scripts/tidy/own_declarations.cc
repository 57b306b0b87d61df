// Loaded into clang-tidy: its checks visit what this project declares, and not again for every
// source what system headers declare. The findings there would be dropped anyway; looking for them
// is most of the time.
#include <clang/AST/ASTConsumer.h>
#include <clang/AST/ASTContext.h>
#include <clang/Basic/SourceManager.h>
#include <clang/Frontend/CompilerInstance.h>
#include <clang/Frontend/FrontendPluginRegistry.h>

#include <memory>
#include <string>
#include <vector>

namespace {

class OwnDeclarations : public clang::ASTConsumer {
 public:
  void HandleTranslationUnit(clang::ASTContext& context) override {
    const clang::SourceManager& sources = context.getSourceManager();
    std::vector<clang::Decl*> own;
    // What a precompiled header brings is not loaded for this: only system headers are precompiled.
    for (clang::Decl* declaration : context.getTranslationUnitDecl()->noload_decls()) {
      const clang::SourceLocation location = sources.getExpansionLoc(declaration->getLocation());
      if (location.isValid() && !sources.isInSystemHeader(location)) own.push_back(declaration);
    }
    context.setTraversalScope(own);
  }
};

class OwnDeclarationsAction : public clang::PluginASTAction {
 protected:
  std::unique_ptr<clang::ASTConsumer> CreateASTConsumer(clang::CompilerInstance&,
                                                        llvm::StringRef) override {
    return std::make_unique<OwnDeclarations>();
  }
  bool ParseArgs(const clang::CompilerInstance&, const std::vector<std::string>&) override {
    return true;
  }
  // Before the checks, which see the declarations after this.
  ActionType getActionType() override { return AddBeforeMainAction; }
};

}  // namespace

static const clang::FrontendPluginRegistry::Add<OwnDeclarationsAction> registered(
    "own-declarations", "checks visit own code alone");
