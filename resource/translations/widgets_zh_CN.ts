<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name>WinStyleButtons</name>
    <message><source>Minimize</source><translation>最小化</translation></message>
    <message><source>Maximize</source><translation>最大化</translation></message>
    <message><source>Restore</source><translation>还原</translation></message>
    <message><source>Close</source><translation>关闭</translation></message>
</context>
<context>
    <name>WindowChrome</name>
    <message><source>Conversations</source><translation>消息</translation></message>
    <message><source>Organization</source><translation>组织架构</translation></message>
    <message><source>Tribes</source><translation>项目群</translation></message>
    <message><source>Work circle</source><translation>工作圈</translation></message>
    <message><source>Settings</source><translation>设置</translation></message>
    <message><source>Sign in to start chatting.</source><translation>请登录后开始聊天。</translation></message>
    <message><source>The organisation appears here once you are signed in.</source><translation>登录后在此查看组织架构。</translation></message>
    <message><source>Your project tribes appear here once you are signed in.</source><translation>登录后在此查看项目群。</translation></message>
    <message><source>Settings open here once you are signed in.</source><translation>登录后在此进行设置。</translation></message>
</context>
<context>
    <name>MainWindow</name>
    <message><source>Exit</source><translation>退出</translation></message>
    <message><source>Open the work site</source><translation>打开工作平台</translation></message>
    <message><source>Send your feedback to %1</source><translation>意见反馈请发送至 %1</translation></message>
</context>
<context>
    <name>FunctionListView</name>
    <message><source>Not signed in</source><translation>未登录</translation></message>
    <message><source>Double-click to open the work site</source><translation>双击打开工作平台</translation></message>
</context>
</TS>
