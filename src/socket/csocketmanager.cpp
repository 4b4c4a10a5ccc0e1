#include "socket/csocketmanager.h"

#include "ioc/iocscanmanager.h"
#include "logger/clogger.h"
#include "scan/cscanmanager.h"
#include "socket/cclientthread.h"
#include "socket/clientreply.h"
#include "socket/clientrequest.h"
#include "socket/clientsend.h"
#include "socket/descriptorreserve.h"

#include <QAbstractEventDispatcher>
#include <QByteArray>
#include <QCoreApplication>

#include <cerrno>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

using LOGGER::CLogger;

CSocketManager* CSocketManager::_instance = nullptr;

CSocketManager* CSocketManager::getInstance()
{
    if (_instance == nullptr) {
        _instance = new CSocketManager;
    }
    return _instance;
}

void CSocketManager::releaseInstance()
{
    // The pointer stays as it is: nothing releases this manager while the service runs, and whoever did
    // could not go on without it.
    if (_instance != nullptr) {
        delete _instance;
    }
}

CSocketManager::CSocketManager()
    : m_scanManager(CScanManager::getInstance()),
      m_iocScanManager(IOCScanManager::getInstance())
{
    const bool connected =
        connect(&m_listener, &CSocketThread::clientConnected, this, &CSocketManager::onClientConnected);
    const int error = errno;
    if (!connected) {
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to connect clientConnected!");
    }
    connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, this,
            [this] { m_isTurnOver = false; });
}

CSocketManager::~CSocketManager()
{
    stop();
}

void CSocketManager::startListening()
{
    if (!m_listener.isRunning()) {
        m_listener.start();
    }
}

void CSocketManager::stop()
{
    m_listener.stop();
    for (CClientThread* thread : qAsConst(m_threads)) {
        thread->stop();
    }
    for (auto client = m_clients.cbegin(); client != m_clients.cend(); ++client) {
        ::shutdown(client.key(), SHUT_RDWR);
    }

    m_listener.wait();
    for (CClientThread* thread : qAsConst(m_threads)) {
        thread->wait();
        delete thread;
    }
    m_threads.clear();
    m_waiting.clear();
    for (auto client = m_clients.cbegin(); client != m_clients.cend(); ++client) {
        ::close(client.key());
    }
    m_clients.clear();
    m_moduleNames.clear();
    // What the threads announced last speaks of descriptors that are closed now.
    QCoreApplication::removePostedEvents(this);
}

void CSocketManager::onClientConnected(int socket)
{
    if (!isRoomOutsideReserve()) {
        // The thread needs one more for its event loop, and without it Qt ends the process.
        ::close(socket);
        return;
    }
    limitSendTime(socket);
    auto* thread = new CClientThread;
    thread->setClientSocket(socket);
    connect(thread, &CClientThread::receivedMessage, this, [this](int client, const QString& message) {
        doInTurn([this, client, message] { onClientReceivedMessage(client, message); });
    });
    connect(thread, &CClientThread::sendMessage, this, &CSocketManager::onClientSendMessage);
    connect(thread, &CClientThread::clientDisconnected, this,
            [this](int client) { doInTurn([this, client] { onClientDisconnected(client); }); });
    // In turn, too: until its last message is served the thread is told of each.
    connect(thread, &QThread::finished, this, [this, thread] {
        doInTurn([this, thread] {
            m_threads.remove(thread);
            delete thread;
        });
    });
    m_clients.insert(socket, thread);
    m_threads.insert(thread);
    thread->start();
    if (!thread->isRunning() && !thread->isFinished()) {
        // The system has no thread to spare. Nobody would ever read from this client.
        m_threads.remove(thread);
        onClientDisconnected(socket);
        delete thread;
    }
}

void CSocketManager::doInTurn(std::function<void()> work)
{
    if (m_waiting.empty() && !m_isTurnOver) {
        m_isTurnOver = true;
        work();
        return;
    }
    m_waiting.push_back(std::move(work));
    if (m_waiting.size() == 1) {
        QMetaObject::invokeMethod(this, &CSocketManager::doNext, Qt::QueuedConnection);
    }
}

void CSocketManager::doNext()
{
    m_isTurnOver = true;
    // It stays in front while it is done, so that it is not taken for the start of an empty queue.
    m_waiting.front()();
    m_waiting.pop_front();
    if (!m_waiting.empty()) {
        QMetaObject::invokeMethod(this, &CSocketManager::doNext, Qt::QueuedConnection);
    }
}

void CSocketManager::onClientReceivedMessage(const int& socket, const QString& message)
{
    const ClientRequest request = parseRequest(message);
    const QByteArray argument = request.argument.toUtf8();
    ClientCommand command = commandOf(request.command);
    QByteArray module;
    if (command == ClientCommand::Module) {
        m_moduleNames.insert(socket, request.argument);
    } else {
        // A client that has no name yet gets an empty one by this, which counts as none.
        module = m_moduleNames[socket].toUtf8();
        if (module.isEmpty() && needsRegistration(command)) {
            command = ClientCommand::Invalid;
        }
    }

    QByteArray reply;
    QString found;
    int result = 0;
    switch (command) {
    case ClientCommand::Module:
        reply = ClientReply::registered();
        break;
    case ClientCommand::Scan:
        while (m_scanManager->isDBLoading()) {
            QThread::sleep(1);
        }
        result = m_scanManager->scanFile(request.argument, found);
        reply = ClientReply::scan(result, found);
        if (result == 1) {
            CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "Virus Found[%s]: %s %s", module.constData(),
                                         argument.constData(), reply.constData());
        }
        break;
    case ClientCommand::Clean:
        result = m_scanManager->cleanFile(request.argument);
        reply = ClientReply::clean(result, m_scanManager->getLastError());
        break;
    case ClientCommand::ScanUrl:
        result = m_scanManager->scanUrl(request.argument, found);
        reply = ClientReply::scan(result, found);
        if (result == 1) {
            CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "Bad URL Found[%s]: %s %s", module.constData(),
                                         argument.constData(), reply.constData());
        }
        break;
    case ClientCommand::ScanIoc:
        while (m_iocScanManager->isDBLoading()) {
            QThread::sleep(1);
        }
        result = m_iocScanManager->scanFile(request.argument, found);
        reply = ClientReply::scanIoc(result, found);
        if (result > 0) {
            // Spelt like this in every log that is searched for it.
            CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "IDC File Detected[%s]: %s %s",
                                         module.constData(), argument.constData(), reply.constData());
        }
        break;
    case ClientCommand::ReloadDb:
        CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Reload DB command recieved.");
        reply = ClientReply::reload(m_scanManager->reloadDatabase());
        break;
    case ClientCommand::ReloadSettings:
        CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Reload settings command recieved.");
        reply = ClientReply::reload(m_scanManager->reloadSettings());
        break;
    case ClientCommand::ReloadIocDb:
        CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Reload IOCDB command recieved.");
        reply = ClientReply::reload(m_iocScanManager->reloadDatabase());
        break;
    case ClientCommand::ReloadIocSettings:
        CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Reload IOCSettings command recieved.");
        reply = ClientReply::reload(m_iocScanManager->reloadSettings());
        break;
    case ClientCommand::Invalid:
        reply = ClientReply::invalidCommand();
        break;
    }

    sendToClient(socket, reply);
    if (CClientThread* thread = m_clients.value(socket)) {
        thread->messageServed();
    }
}

int CSocketManager::onClientSendMessage(const int& socket, const QString& message)
{
    const QByteArray text = message.toUtf8();
    CLogger::getInstance()->Debug(__PRETTY_FUNCTION__, "Send message: %s", text.constData());
    const int end = text.indexOf('\0');
    return static_cast<int>(sendToClient(socket, end < 0 ? text : text.left(end)));
}

void CSocketManager::onClientDisconnected(const int& socket)
{
    m_moduleNames.remove(socket);
    // Only a descriptor that is this manager's, and once: the number may be another's already.
    if (m_clients.remove(socket) > 0) {
        ::close(socket);
    }
}
