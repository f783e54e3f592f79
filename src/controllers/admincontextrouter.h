#ifndef ADMINCONTEXTROUTER_H
#define ADMINCONTEXTROUTER_H

#include "controllers/adminrequestcontext.h"

#include <QObject>

class ControllerFactory;

// Ties an admin request to its administrator by API token and hands it to the controller of
// its first path word. Lives for one request.
class AdminContextRouter : public QObject
{
    Q_OBJECT

public:
    explicit AdminContextRouter(QObject *parent = nullptr);
    ~AdminContextRouter() override;

    void build(AdminRequestContext &ctx);
    bool getAdminId(AdminRequestContext &ctx);

private:
    ControllerFactory *m_factory = nullptr;
};

#endif
